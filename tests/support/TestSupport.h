// Helpers shared by the tests.
#pragma once

#include "VideoRenderer.h"

#include <QMap>
#include <QMutex>
#include <QStringList>
#include <QVariant>

/// Captures the debug log for its lifetime (and still prints it).
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    QStringList lines() const;
    /// Lines that contain `text`.
    int count(const QString& text) const;
    void clear();
};

/// A renderer of any type name and render type, for tests of name rules.
class TestRenderer : public QtAV::VideoRenderer
{
public:
    explicit TestRenderer(const char* typeName, int renderType = QtAV::VideoRenderType_Output);
    QtAV::VideoRendererId id() const override { return m_id; }
    int videoRenderType() const override { return m_renderType; }

private:
    QtAV::VideoRendererId m_id;
    int m_renderType;
};

using Record = QMap<QString, QVariant>;

/// A layer creation record (creatnewlayer) with every key the host sends:
/// group 9, no pre-render.
inline Record hostLayerRecord(int bankId, int layerId, const QString& path, qint64 timeLenMsec,
                              const QString& type)
{
    Record record;
    record["layerId"] = layerId;
    record["bankId"] = bankId;
    record["path"] = path;
    record["groupID"] = 9;
    record["type"] = type;
    record["timeLenMsec"] = timeLenMsec;
    record["isSetPr"] = false;
    return record;
}

/// Lets queued events (queued signals, deferred deletions) run.
void processEvents(int rounds = 3);

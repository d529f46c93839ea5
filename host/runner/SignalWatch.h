// SignalWatch: SIGINT and SIGTERM end the run in order (layers ended,
// recordings finished, screens closed) instead of killing it mid-frame. The
// handler only writes the signal number into a pipe; the GUI thread reads it.
//
// Threading: install() and the signal's delivery on the GUI thread.
#pragma once

#include <QObject>

class QSocketNotifier;

class SignalWatch : public QObject
{
    Q_OBJECT
public:
    explicit SignalWatch(QObject* parent = nullptr);
    /// false when the pipe cannot be made (the signals then kill as usual).
    bool install();

signals:
    void caught(int signalNumber);

private:
    QSocketNotifier* m_notifier = nullptr; // child
};

#include "TestSupport.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <mutex>

namespace {

// A standard mutex rather than QMutex: messages come from threads of
// PipeWire and the engines, and ThreadSanitizer cannot see QMutex's
// contended path inside the uninstrumented Qt library.
std::mutex g_logMutex;        // guards g_lines and g_capturing
QStringList g_lines;
int g_capturing = 0;
QtMessageHandler g_previous = nullptr;

void captureHandler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    {
        std::lock_guard<std::mutex> lock(g_logMutex);
        if (g_capturing > 0)
            g_lines << message;
    }
    if (g_previous)
        g_previous(type, context, message);
}

} // namespace

LogCapture::LogCapture()
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    if (g_capturing++ == 0) {
        g_lines.clear();
        g_previous = qInstallMessageHandler(captureHandler);
    }
}

LogCapture::~LogCapture()
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    if (--g_capturing == 0)
        qInstallMessageHandler(g_previous);
}

QStringList LogCapture::lines() const
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    return g_lines;
}

int LogCapture::count(const QString& text) const
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    int n = 0;
    for (const QString& line : g_lines)
        n += line.contains(text) ? 1 : 0;
    return n;
}

void LogCapture::clear()
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    g_lines.clear();
}

TestRenderer::TestRenderer(const char* typeName, int renderType)
    : m_id(QtAV::VideoRenderer::registerName(typeName)), m_renderType(renderType)
{
}

void processEvents(int rounds)
{
    for (int i = 0; i < rounds; ++i) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    }
}

// Queued delivery, as the service receives the timer's signals: string-form
// automatic connections to an object of the main thread, whose slots then run
// on the main thread, in emission order.
//
// Qt's queued delivery is not visible to the thread sanitizer, so this test
// has "Queued" in its name and is left out of that run.
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStringList>
#include <QThread>

#include <gtest/gtest.h>

namespace {

class MainThreadProbe : public QObject
{
    Q_OBJECT
public:
    QStringList log;
    bool allOnMainThread = true;

signals:
    void received();

public slots:
    void onStarted(int layerId, int bankId) { note(QStringLiteral("started(%1,%2)").arg(layerId).arg(bankId)); }
    void onStopped(int layerId, int bankId) { note(QStringLiteral("stopped(%1,%2)").arg(layerId).arg(bankId)); }
    void onPaused(int layerId, int bankId, bool isPause)
    {
        note(QStringLiteral("paused(%1,%2,%3)").arg(layerId).arg(bankId).arg(isPause ? "true" : "false"));
    }
    void onSetProgressTimered(int layerId, int bankId, qint64 timeMsec)
    {
        note(QStringLiteral("progress(%1,%2,%3)").arg(layerId).arg(bankId).arg(timeMsec ? "p" : "0"));
    }

private:
    void note(const QString& entry)
    {
        allOnMainThread = allOnMainThread && QThread::currentThread() == qApp->thread();
        log << entry;
        emit received();
    }
};

TEST(TimerQueued, SignalsReachAMainThreadObjectQueuedAndInOrder)
{
    using Timer = UI_Proc_KELMOR_PlayerTimer_Desktop;
    MainThreadProbe probe;
    auto* timer = new Timer(3, 7, 300);
    ASSERT_TRUE(QObject::connect(timer, SIGNAL(started(int,int)), &probe, SLOT(onStarted(int,int))));
    ASSERT_TRUE(QObject::connect(timer, SIGNAL(stopped(int,int)), &probe, SLOT(onStopped(int,int))));
    ASSERT_TRUE(QObject::connect(timer, SIGNAL(paused(int,int,bool)), &probe,
                                 SLOT(onPaused(int,int,bool))));
    ASSERT_TRUE(QObject::connect(timer, SIGNAL(setProgressTimered(int,int,qint64)), &probe,
                                 SLOT(onSetProgressTimered(int,int,qint64))));

    QSignalSpy spy(&probe, &MainThreadProbe::received);
    timer->startThread();
    while (!probe.log.contains(QStringLiteral("stopped(3,7)")) && spy.wait(20000)) {
    }
    delete timer; // the loop has ended; this only joins

    const QString shape = probe.log.join(QLatin1Char(' '));
    EXPECT_TRUE(QRegularExpression(QRegularExpression::anchoredPattern(
                    R"(started\(3,7\)( progress\(3,7,p\))+ progress\(3,7,0\) stopped\(3,7\))"))
                    .match(shape)
                    .hasMatch())
        << shape.toStdString();
    EXPECT_TRUE(probe.allOnMainThread);
}

} // namespace

#include "timer_queued_test.moc"

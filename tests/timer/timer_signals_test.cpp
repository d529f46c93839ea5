// The timer's meta-object: eight signals in a fixed order with exact
// signatures (the service connects to them by string), no slots, no
// properties; and the four declared-only signals are never emitted.
#include "TimerRecorder.h"

#include <QMetaMethod>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

using Timer = UI_Proc_KELMOR_PlayerTimer_Desktop;

struct SignalRow
{
    const char* signature;
    QList<QByteArray> parameterNames;
};

const QList<SignalRow>& signalTable()
{
    static const QList<SignalRow> table = {
        {"started(int,int)", {"layerId", "bankId"}},
        {"stopped(int,int)", {"layerId", "bankId"}},
        {"paused(int,int,bool)", {"layerId", "bankId", "isPause"}},
        {"setProgressTimered(int,int,qint64)", {"layerId", "bankId", "timeMsec"}},
        {"setRepeated(int,int,int)", {"layerId", "bankId", "count"}},
        {"setSynchClocked(int,int,float)", {"layerId", "bankId", "timeMsec"}},
        {"playReadyed(int,int,qint64,bool)", {"layerId", "bankId", "timeMsec", "isPause"}},
        {"resetPlayed(int,int,bool)", {"layerId", "bankId", "isPause"}},
    };
    return table;
}

TEST(TimerSignals, EightSignalsInOrderWithExactSignatures)
{
    const QMetaObject& mo = Timer::staticMetaObject;
    const QList<SignalRow>& table = signalTable();
    for (int i = 0; i < table.size(); ++i) {
        const int index = mo.indexOfSignal(table[i].signature);
        ASSERT_GE(index, 0) << table[i].signature;
        EXPECT_EQ(index - mo.methodOffset(), i) << table[i].signature;
        const QMetaMethod m = mo.method(index);
        EXPECT_EQ(m.methodType(), QMetaMethod::Signal);
        EXPECT_EQ(m.returnType(), QMetaType::Void);
        EXPECT_EQ(m.parameterNames(), table[i].parameterNames) << table[i].signature;
    }
}

TEST(TimerSignals, NoSlotsNoPropertiesNoOtherMethods)
{
    const QMetaObject& mo = Timer::staticMetaObject;
    EXPECT_EQ(mo.methodCount() - mo.methodOffset(), 8);
    EXPECT_EQ(mo.propertyCount() - mo.propertyOffset(), 0);
    EXPECT_STREQ(mo.superClass()->className(), "QObject");
}

TEST(TimerSignals, StringFormConnectionsToEverySignalSucceed)
{
    Timer timer(1, 2, 1000);
    EXPECT_TRUE(QSignalSpy(&timer, SIGNAL(started(int,int))).isValid());
    EXPECT_TRUE(QSignalSpy(&timer, SIGNAL(stopped(int,int))).isValid());
    EXPECT_TRUE(QSignalSpy(&timer, SIGNAL(paused(int,int,bool))).isValid());
    EXPECT_TRUE(QSignalSpy(&timer, SIGNAL(setProgressTimered(int,int,qint64))).isValid());
    EXPECT_TRUE(QSignalSpy(&timer, SIGNAL(setRepeated(int,int,int))).isValid());
    EXPECT_TRUE(QSignalSpy(&timer, SIGNAL(setSynchClocked(int,int,float))).isValid());
    EXPECT_TRUE(QSignalSpy(&timer, SIGNAL(playReadyed(int,int,qint64,bool))).isValid());
    EXPECT_TRUE(QSignalSpy(&timer, SIGNAL(resetPlayed(int,int,bool))).isValid());
}

TEST(TimerSignals, DeclaredOnlySignalsAreNeverEmitted)
{
    RecordedTimer t(2, 5, 300);
    t.timer->setRepeat(1);
    t.timer->setDuration(250);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForReports(0, 1));
    t.timer->pauseTimer(true);
    t.timer->pauseTimer(false);
    t.timer->setProgressTimer(100);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 1));
    t.timer->setProgressTimer(50);
    t.timer->startThread();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Started, 3));
    t.timer->stopTimer();
    ASSERT_TRUE(t.rec.waitForCount(TimerEvent::Stopped, 2));
    t.destroy();

    const TimerEvents ev = t.rec.events();
    EXPECT_EQ(countOf(ev, TimerEvent::Repeated), 0);
    EXPECT_EQ(countOf(ev, TimerEvent::SynchClocked), 0);
    EXPECT_EQ(countOf(ev, TimerEvent::PlayReadyed), 0);
    EXPECT_EQ(countOf(ev, TimerEvent::ResetPlayed), 0);
    EXPECT_TRUE(allFrom(ev, 2, 5));
}

} // namespace

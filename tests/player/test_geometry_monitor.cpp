// Per-screen monitor-effect settings (setTP, getTP).
#include "test_geometry_fixture.h"

namespace {

class GeometryMonitorTest : public GeometryTest
{
protected:
    static Record settings()
    {
        Record r;
        r["brightness"] = 0.75;
        r["screenId"] = 2;
        return r;
    }
};

TEST_F(GeometryMonitorTest, AllScreensForwardOnceWithMinusOne)
{
    openScreen(1);
    openScreen(2);
    QSignalSpy forwarded(&effects(), &EffectsService::monitorEffectsChanged);

    service().setTP(-1, settings());

    ASSERT_EQ(forwarded.count(), 1);
    EXPECT_EQ(forwarded.at(0).at(0).toInt(), -1);
    EXPECT_EQ(effects().monitorEffects(-1), settings());
}

TEST_F(GeometryMonitorTest, UnknownScreenForwardsNothing)
{
    openScreen(1);
    openScreen(2);
    QSignalSpy forwarded(&effects(), &EffectsService::monitorEffectsChanged);

    service().setTP(5, settings());

    EXPECT_EQ(forwarded.count(), 0);
}

TEST_F(GeometryMonitorTest, NoOpenScreensForwardNothing)
{
    QSignalSpy forwarded(&effects(), &EffectsService::monitorEffectsChanged);

    service().setTP(-1, settings());

    EXPECT_EQ(forwarded.count(), 0);
}

TEST_F(GeometryMonitorTest, ScreensSharingAnIdForwardOnceWithThatId)
{
    openScreen(2, 0, QStringLiteral("guid-a"));
    openScreen(2, 1, QStringLiteral("guid-b"));
    openScreen(3);
    QSignalSpy forwarded(&effects(), &EffectsService::monitorEffectsChanged);

    service().setTP(2, settings());

    ASSERT_EQ(forwarded.count(), 1);
    EXPECT_EQ(forwarded.at(0).at(0).toInt(), 2);
    EXPECT_EQ(effects().monitorEffects(2), settings());
}

TEST_F(GeometryMonitorTest, QueryAnswersEmptyForExistingAndUnknownScreens)
{
    openScreen(2);
    Record known;
    known["screenId"] = 2;
    known["screenType"] = 0;
    known["clientGuid"] = QStringLiteral("guid-a");
    ASSERT_NE(screens().getScreenWidget(known), nullptr);

    EXPECT_TRUE(service().getTP(known).isEmpty());
    EXPECT_TRUE(service().getTP(Record()).isEmpty());
}

} // namespace

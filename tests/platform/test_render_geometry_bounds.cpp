// A render object given placements at the ends of the int range: it keeps a
// rectangle whose every edge is an int, values within the placement limit
// exactly, and says once per call when it had to saturate.
#include "NoxOpenGLRender.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

// How far a placement reaches from the origin, in pixels.
constexpr int kLimit = 1073741823;
const int kExtremes[] = {INT_MIN, INT_MIN + 1, -kLimit - 1, -1, 0, kLimit + 1, INT_MAX};

int bounded(int v)
{
    return v < -kLimit ? -kLimit : (v > kLimit ? kLimit : v);
}

TEST(RenderGeometryBounds, ExtremePlacementsAreSaturatedWithOneDebugLineEach)
{
    QtAV::NoxOpenGLRender r;
    for (int x : kExtremes) {
        for (int w : kExtremes) {
            SCOPED_TRACE(QStringLiteral("x %1 width %2").arg(x).arg(w).toStdString());
            LogCapture log;
            r.setGeometry(x, w, w, x);
            const QRect g = r.geometry();
            EXPECT_EQ(g.left(), bounded(x));
            EXPECT_EQ(g.top(), bounded(w));
            EXPECT_EQ(g.width(), bounded(w));
            EXPECT_EQ(g.height(), bounded(x));
            EXPECT_EQ(qint64(g.right()), qint64(bounded(x)) + bounded(w) - 1);
            EXPECT_EQ(qint64(g.bottom()), qint64(bounded(w)) + bounded(x) - 1);
            const bool clamped = bounded(x) != x || bounded(w) != w;
            EXPECT_EQ(log.count(QStringLiteral("NoxOpenGLRender::setGeometry")), clamped ? 1 : 0);
        }
    }
}

TEST(RenderGeometryBounds, PlacementsWithinTheLimitAreKeptExactly)
{
    QtAV::NoxOpenGLRender r;
    LogCapture log;
    r.setGeometry(-kLimit, kLimit, kLimit, -kLimit);
    EXPECT_EQ(r.geometry(), QRect(-kLimit, kLimit, kLimit, -kLimit));
    r.setGeometry(300, 170, -200, -100);
    EXPECT_EQ(r.geometry(), QRect(300, 170, -200, -100));
    EXPECT_TRUE(log.lines().isEmpty());

    bool saturated = true;
    EXPECT_EQ(QtAV::NoxOpenGLRender::boundedGeometry(1, 2, 3, 4, &saturated), QRect(1, 2, 3, 4));
    EXPECT_FALSE(saturated);
    EXPECT_EQ(QtAV::NoxOpenGLRender::boundedGeometry(INT_MAX, 0, 0, INT_MIN, &saturated),
              QRect(kLimit, 0, 0, -kLimit));
    EXPECT_TRUE(saturated);
    EXPECT_EQ(QtAV::NoxOpenGLRender::kPlacementLimit, kLimit);
}

} // namespace

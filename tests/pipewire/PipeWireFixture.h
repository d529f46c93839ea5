// Fixture of the PipeWire video tests: the output-screen fixture (offscreen
// screens, pixel reads) plus "spout" layers made as the host makes them
// (creatnewlayer, media type, addRenderer, play), GStreamer producers and
// consumers, and the private daemon started by the test main.
#pragma once

#include "../screens/ModuleLayerFixture.h"
#include "GstPipeline.h"
#include "PrivatePipeWire.h"
#include "ScenePlayer.h"
#include "SpoutNode.h"

#include <QAtomicInt>

class PipeWireTest : public ModuleLayerTest
{
public:
    static PrivatePipeWire& daemon()
    {
        static PrivatePipeWire instance;
        return instance;
    }

protected:
    void TearDown() override
    {
        m_pipelines.clear();
        EXPECT_TRUE(endLayers()) << "a released player was not deleted";
        processEvents();
        for (int id : {1, 2})
            ScreenService::getInstance().unpublishScreen(id);
        ModuleLayerTest::TearDown();
    }

    /// A "spout" layer of `source` on screen `screenId`, filling `geometry`
    /// (the picture's design size is 320x180), playing.
    QtAV::AVPlayer* spoutLayer(int layerId, const QString& source, int screenId, const QRect& geometry)
    {
        QtAV::AVPlayer* player = makeLayer(layerId, QStringLiteral("spout"), source, 600000);
        if (!player)
            return nullptr;
        Record renderer = screenOneRendererRecord(kBank, layerId, geometry);
        renderer["screenId"] = screenId;
        service().addRenderer(renderer);
        service().play(player);
        return player;
    }

    SpoutNode* nodeOf(int layerId)
    {
        ScenePlayer* scene = reg().getScenePlayer(kBank, layerId);
        return scene ? scene->spoutNode : nullptr;
    }

    /// Starts a gst-launch pipeline that the fixture stops at the end.
    GstPipeline* pipeline(const QString& description)
    {
        m_pipelines.push_back(std::make_unique<GstPipeline>(description));
        GstPipeline* p = m_pipelines.back().get();
        EXPECT_TRUE(p->start()) << description.toStdString();
        return p;
    }

    /// The largest per-channel difference between `area` of `image` and
    /// `reference` (same size as area), skipping `margin` pixels around each
    /// colour edge of the reference (where filtering and chroma blending
    /// legitimately differ). videotestsrc's SMPTE picture animates noise in
    /// its bottom right corner, which is never compared; `bottomRow` false
    /// leaves out its whole bottom row (whose patches are defined in YUV and
    /// so differ between RGB and YUV producers).
    static int differenceIn(const QImage& image, const QRect& area, const QImage& reference,
                            int margin = 0, bool bottomRow = true)
    {
        if (image.isNull() || reference.size() != area.size())
            return 1000;
        int worst = 0;
        const int w = reference.width(), h = reference.height();
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const QRgb r = reference.pixel(x, y);
                if (y >= h * 74 / 100 && (!bottomRow || x >= w * 72 / 100))
                    continue;
                if (margin > 0 && nearEdge(reference, x, y, margin))
                    continue;
                const QRgb p = image.pixel(area.x() + x, area.y() + y);
                worst = std::max({worst, qAbs(qRed(p) - qRed(r)), qAbs(qGreen(p) - qGreen(r)),
                                  qAbs(qBlue(p) - qBlue(r))});
            }
        }
        return worst;
    }

    static bool nearEdge(const QImage& reference, int x, int y, int margin)
    {
        const QRgb c = reference.pixel(x, y);
        for (int dy = -margin; dy <= margin; ++dy) {
            for (int dx = -margin; dx <= margin; ++dx) {
                const int xx = x + dx, yy = y + dy;
                if (xx < 0 || yy < 0 || xx >= reference.width() || yy >= reference.height())
                    continue;
                const QRgb o = reference.pixel(xx, yy);
                if (std::max({qAbs(qRed(o) - qRed(c)), qAbs(qGreen(o) - qGreen(c)),
                              qAbs(qBlue(o) - qBlue(c))}) > 8)
                    return true;
            }
        }
        return false;
    }

    static bool isBlack(const QImage& image, const QRect& area)
    {
        if (image.isNull())
            return false;
        for (int y = area.top(); y <= area.bottom(); y += 3)
            for (int x = area.left(); x <= area.right(); x += 3)
                if (!near(image.pixel(x, y), Qt::black, 2))
                    return false;
        return true;
    }

    /// Waits until `area` of screen `screenId` matches `reference` within
    /// `tolerance` levels (edge margin as differenceIn).
    bool waitForPicture(int screenId, const QRect& area, const QImage& reference, int tolerance,
                        int margin = 0, int msec = 10000, int* worst = nullptr, bool bottomRow = true)
    {
        int last = 1000;
        const bool ok = waitUntil([&] {
            last = differenceIn(grab(screenId), area, reference, margin, bottomRow);
            return last <= tolerance;
        }, msec);
        if (worst)
            *worst = last;
        if (!ok && qEnvironmentVariableIsSet("KELMOR_TEST_DUMP"))
            grab(screenId).save(qEnvironmentVariable("KELMOR_TEST_DUMP") + "/"
                                + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".png");
        return ok;
    }

    bool waitForBlack(int screenId, const QRect& area, int msec = 10000)
    {
        return waitUntil([&] { return isBlack(grab(screenId), area); }, msec);
    }

    std::vector<std::unique_ptr<GstPipeline>> m_pipelines;
};

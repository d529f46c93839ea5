// Renderer type names, render objects and output widgets keep what they are
// given.
#include "NoxOpenGLRender.h"
#include "NoxOpenGLWidgetRenderer.h"
#include "ScenePlayer.h"
#include "ScreenKey.h"
#include "TestSupport.h"

#include <QMap>
#include <gtest/gtest.h>
#include <cmath>

namespace {

TEST(RendererNames, BuiltInNamesAndRegisteredOnes)
{
    EXPECT_STREQ(QtAV::VideoRenderer::name(QtAV::VideoRendererId_NoxGL), "NoxGL");
    EXPECT_STREQ(QtAV::VideoRenderer::name(QtAV::VideoRendererId_QmlGL), "QmlGL");
    EXPECT_EQ(QtAV::VideoRenderer::name(0), nullptr);
    EXPECT_EQ(QtAV::VideoRenderer::name(-7), nullptr);
    EXPECT_EQ(QtAV::VideoRenderer::name(100000), nullptr);
    const int id = QtAV::VideoRenderer::registerName("PreviewTest");
    EXPECT_EQ(QtAV::VideoRenderer::registerName("PreviewTest"), id);
    EXPECT_STREQ(QtAV::VideoRenderer::name(id), "PreviewTest");
    EXPECT_EQ(QtAV::VideoRenderer::registerName("NoxGL"), QtAV::VideoRendererId_NoxGL);
    EXPECT_EQ(QtAV::VideoRenderer::registerName(nullptr), 0);
}

TEST(RendererNames, RenderObjectIsNoxGLAndAScreenOutput)
{
    QtAV::NoxOpenGLRender r;
    EXPECT_STREQ(QtAV::VideoRenderer::name(r.id()), "NoxGL");
    EXPECT_EQ(r.videoRenderType(), QtAV::VideoRenderType_Output);
    TestRenderer custom("QmlGL", QtAV::VideoRenderType_Custom);
    EXPECT_EQ(custom.videoRenderType(), 1);
}

TEST(RenderObject, KeepsEverySettingItIsGiven)
{
    QtAV::NoxOpenGLRender r;
    EXPECT_TRUE(r.isVisible());
    EXPECT_FALSE(r.hasCorners());
    r.setOriginalWH(1920, 1080);
    r.setGeometry(10, 20, 640, 360);
    r.resizeRenderer(640, 360);
    r.setPlayerLayerID(3, 7);
    r.setFrameRate(29.97);
    r.setRegionOfInterest(5, 10, 150.5, 100.5);
    r.setRect({0, 0}, {0, 100}, {200, 100}, {200, 0});
    r.setPatchRoi({QRectF(0, 0, 1, 1), QRectF(1, 1, 2, 2)});
    r.setPatchCount(12);
    r.setPatchInfo(3, 4, {1.f, 2.f, 3.f});
    r.setZ(2.5);
    r.setVisible(false);

    EXPECT_EQ(r.originalSize(), QSizeF(1920, 1080));
    EXPECT_EQ(r.geometry(), QRect(10, 20, 640, 360));
    EXPECT_EQ(r.rendererSize(), QSize(640, 360));
    EXPECT_EQ(r.screenId(), 3);
    EXPECT_EQ(r.layerId(), 7);
    EXPECT_DOUBLE_EQ(r.frameRate(), 29.97);
    EXPECT_EQ(r.regionOfInterest(), QRectF(5, 10, 150.5, 100.5));
    EXPECT_EQ(r.corners(), QVector<QPointF>({{0, 0}, {0, 100}, {200, 100}, {200, 0}}));
    EXPECT_EQ(r.patchRoi().size(), 2);
    EXPECT_EQ(r.patchCount(), 12);
    EXPECT_EQ(r.patchInfo().rows, 3);
    EXPECT_EQ(r.patchInfo().cols, 4);
    EXPECT_EQ(r.patchInfo().points, QVector<float>({1.f, 2.f, 3.f}));
    EXPECT_DOUBLE_EQ(r.z(), 2.5);
    EXPECT_FALSE(r.isVisible());
}

TEST(RenderObject, KeepsNotANumberAsGiven)
{
    QtAV::NoxOpenGLRender r;
    r.setRegionOfInterest(0, 0, std::nan(""), INFINITY);
    EXPECT_TRUE(std::isnan(r.regionOfInterest().width()));
    EXPECT_TRUE(std::isinf(r.regionOfInterest().height()));
}

TEST(RenderObject, EmptyFrameBlanks)
{
    QtAV::NoxOpenGLRender r;
    QImage image(4, 4, QImage::Format_RGB32);
    image.fill(Qt::red);
    r.receive(QtAV::VideoFrame(image, 40));
    EXPECT_TRUE(r.currentFrame().isValid());
    EXPECT_EQ(r.currentFrame().timestamp(), 40);
    r.receive(QtAV::VideoFrame());
    EXPECT_FALSE(r.currentFrame().isValid());
}

TEST(OutputWidget, HostsRenderObjectsInPushOrder)
{
    QtAV::NoxOpenGLWidgetRenderer widget;
    QtAV::NoxOpenGLRender a, b, c;
    widget.pushRender(&a);
    widget.pushRender(&b);
    widget.pushRender(&a); // already hosted: ignored
    widget.pushRender(nullptr);
    widget.pushRender(&c);
    EXPECT_EQ(widget.renders(), QList<QtAV::NoxOpenGLRender*>({&a, &b, &c}));
    widget.removeRender(&b);
    widget.removeRender(&b);
    widget.removeRender(nullptr);
    EXPECT_EQ(widget.renders(), QList<QtAV::NoxOpenGLRender*>({&a, &c}));
}

TEST(ScreenKeys, OrderedAndMatchedByScreenIdAlone)
{
    QMap<ScreenKey, int> map;
    map.insert(ScreenKey(2, 0, "guid-a"), 1);
    map.insert(ScreenKey(2, 5, "guid-b"), 2); // same screen number: replaces
    map.insert(ScreenKey(1, 9, "x"), 3);
    ASSERT_EQ(map.size(), 2);
    EXPECT_EQ(map.value(ScreenKey(2, 7, "other")), 2);
    EXPECT_EQ(map.firstKey().screenId, 1);
    EXPECT_FALSE(map.contains(ScreenKey(3, 0, "guid-a")));
}

TEST(ScenePlayerRecord, StartsEmpty)
{
    ScenePlayer sp;
    EXPECT_EQ(sp.player, nullptr);
    EXPECT_EQ(sp.spoutNode, nullptr);
    EXPECT_EQ(sp.playerTimer, nullptr);
    EXPECT_EQ(sp.groupId, 0);
    EXPECT_EQ(sp.layerId, 0);
    EXPECT_TRUE(sp.rendererMap.isEmpty());
}

} // namespace

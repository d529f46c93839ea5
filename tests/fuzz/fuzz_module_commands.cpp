// Fuzz target: the module's commands, called as show steps call them
// (operation table, argument conversion, command records) with arguments
// and records built from the fuzz input, against the recording engine and
// two output screens kept open for the whole run. Each input is a short
// sequence of commands on a few banks and layers; afterwards every layer is
// ended and its player deleted, so one input never leaks into the next.
#include "AVPlayer.h"
#include "LayerCleanup.h"
#include "ModuleSteps.h"
#include "OperationTable.h"
#include "RecordingEngine.h"
#include "ScreenService.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <fuzzer/FuzzedDataProvider.h>

#include <climits>
#include <cstdlib>
#include <cstdint>
#include <vector>

namespace {

constexpr int kMaxSteps = 24;

// The keys command records carry (common, geometry, effects, content),
// so that most generated records reach past the first look-up.
const char* const kRecordKeys[] = {
    "bankId", "layerId", "path", "videoPath", "groupID", "type", "timeLenMsec", "isSetPr",
    "videoName", "screenId", "screenType", "clientGuid", "frameX", "frameY", "rendererX",
    "rendererY", "crossWidth", "crossHeight", "originalWidth", "originalHeight", "actualWidth",
    "actualHeight", "layerRotation", "isScal", "isRotation", "isFill", "isOutArea", "isBezier",
    "relativeX", "relativeY", "lTPoint", "rTPoint", "lBpoint", "rBpoint", "row", "col", "x", "y",
    "width", "height", "roiData", "pointData", "volume", "soundTrack", "fadeTime", "repeat",
    "page", "effect", "value", "name", "z", "visible", "rendererType", "rendererName",
    "brightness", "contrast", "edgeLeft", "edgeRight", "testPattern", "startTime", "ndiName",
    "spoutName"};

const char* const kStrings[] = {"video", "audio", "picture", "office", "osd", "ndi", "captureCard",
                                "networkVideo", "virtualScreen", "spout", "NoxGL", "QmlGL",
                                "/nonexistent/clip.mp4", "", "screen:2", "2", "guid-a", "../x"};

bool pickOp(FuzzedDataProvider& in, const std::vector<const Operation*>& ops, const Operation*& op)
{
    if (ops.empty())
        return false;
    op = ops[in.ConsumeIntegralInRange<std::size_t>(0, ops.size() - 1)];
    return true;
}

int anInt(FuzzedDataProvider& in)
{
    switch (in.ConsumeIntegralInRange(0, 5)) {
    case 0: return INT_MIN;
    case 1: return INT_MAX;
    case 2: return in.ConsumeIntegralInRange(-1, 3);
    case 3: return in.ConsumeIntegralInRange(0, 4096);
    default: return in.ConsumeIntegral<int>();
    }
}

double aDouble(FuzzedDataProvider& in)
{
    switch (in.ConsumeIntegralInRange(0, 4)) {
    case 0: return 1e308;
    case 1: return -1e308;
    case 2: return in.ConsumeIntegralInRange(-4, 4) * 0.5;
    default: return in.ConsumeFloatingPointInRange(-1e6, 1e6);
    }
}

QJsonValue aString(FuzzedDataProvider& in)
{
    if (in.ConsumeBool())
        return QString::fromLatin1(kStrings[in.ConsumeIntegralInRange<std::size_t>(0, std::size(kStrings) - 1)]);
    return QString::fromStdString(in.ConsumeRandomLengthString(64));
}

QJsonValue aValue(FuzzedDataProvider& in, int depth);

QJsonArray numbers(FuzzedDataProvider& in, int most)
{
    QJsonArray array;
    const int n = in.ConsumeIntegralInRange(0, most);
    for (int i = 0; i < n; ++i)
        array.append(in.ConsumeBool() ? QJsonValue(aDouble(in)) : QJsonValue(anInt(in)));
    return array;
}

/// Patch control points per screen, as setBezierPoint takes them: mostly
/// whole patches of 32 numbers, sometimes short or long.
QJsonArray pointData(FuzzedDataProvider& in)
{
    QJsonArray entries;
    const int n = in.ConsumeIntegralInRange(0, 2);
    for (int i = 0; i < n; ++i) {
        QJsonArray data;
        const int patches = in.ConsumeIntegralInRange(0, 4);
        const int count = in.ConsumeBool() ? patches * 32 : in.ConsumeIntegralInRange(0, 200);
        for (int k = 0; k < count; ++k)
            data.append(in.ConsumeBool() ? in.ConsumeFloatingPointInRange(-100.0, 800.0) : aDouble(in));
        entries.append(QJsonObject{{QStringLiteral("screenId"), in.ConsumeIntegralInRange(0, 3)},
                                   {QStringLiteral("screenType"), 0},
                                   {QStringLiteral("clientGuid"), QString()},
                                   {QStringLiteral("data"), data}});
    }
    return entries;
}

QJsonObject aRecord(FuzzedDataProvider& in, int depth)
{
    QJsonObject record;
    const int keys = in.ConsumeIntegralInRange(0, 16);
    for (int i = 0; i < keys; ++i) {
        const QString key = in.ConsumeIntegralInRange(0, 15) == 0
            ? QString::fromStdString(in.ConsumeRandomLengthString(16))
            : QString::fromLatin1(kRecordKeys[in.ConsumeIntegralInRange<std::size_t>(0, std::size(kRecordKeys) - 1)]);
        if (key == QLatin1String("pointData") && in.ConsumeBool())
            record.insert(key, pointData(in));
        else if (key == QLatin1String("roiData") && in.ConsumeBool())
            record.insert(key, numbers(in, 6));
        else
            record.insert(key, aValue(in, depth + 1));
    }
    return record;
}

QJsonValue aValue(FuzzedDataProvider& in, int depth)
{
    switch (in.ConsumeIntegralInRange(0, depth > 2 ? 4 : 7)) {
    case 0: return anInt(in);
    case 1: return aDouble(in);
    case 2: return aString(in);
    case 3: return in.ConsumeBool();
    case 4: return QJsonValue(QJsonValue::Null);
    case 5: return QJsonObject{{QStringLiteral("x"), aDouble(in)}, {QStringLiteral("y"), aDouble(in)}};
    case 6: return numbers(in, 40);
    default: return aRecord(in, depth);
    }
}

QJsonValue aLayerRef(FuzzedDataProvider& in)
{
    if (in.ConsumeIntegralInRange(0, 7) == 0)
        return QJsonValue(QJsonValue::Null);
    return QJsonObject{{QStringLiteral("bank"), in.ConsumeIntegralInRange(1, 2)},
                       {QStringLiteral("layer"), in.ConsumeIntegralInRange(1, 3)}};
}

QJsonValue anArgument(FuzzedDataProvider& in, ArgKind kind)
{
    // Now and then a value of the wrong kind, to exercise the refusals.
    if (in.ConsumeIntegralInRange(0, 15) == 0)
        return aValue(in, 2);
    switch (kind) {
    case ArgKind::Int: return anInt(in);
    case ArgKind::Int64: return static_cast<double>(in.ConsumeIntegralInRange<qint64>(-(1LL << 53), 1LL << 53));
    case ArgKind::Double:
    case ArgKind::Float: return aDouble(in);
    case ArgKind::Bool: return in.ConsumeBool();
    case ArgKind::String: return aString(in);
    case ArgKind::Record: {
        QJsonObject record = aRecord(in, 0);
        // Mostly aimed at the layers and screens that exist.
        if (in.ConsumeBool()) {
            record.insert(QStringLiteral("bankId"), in.ConsumeIntegralInRange(1, 2));
            record.insert(QStringLiteral("layerId"), in.ConsumeIntegralInRange(1, 3));
        }
        if (in.ConsumeBool())
            record.insert(QStringLiteral("screenId"), in.ConsumeIntegralInRange(1, 2));
        return record;
    }
    case ArgKind::Player:
    case ArgKind::Timer: return aLayerRef(in);
    }
    return QJsonValue();
}

void processEvents()
{
    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

/// Ends every layer as the runner does at shutdown, and waits (bounded)
/// until their players are deleted.
void endAllLayers()
{
    refileRemovedLayers();
    removeRenderObjectsOfLiveLayers();
    UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().clearAllPlayer();
    QElapsedTimer waited;
    waited.start();
    for (;;) {
        processEvents();
        bool gone = true;
        for (const QPointer<QtAV::AVPlayer>& player : createdPlayers())
            gone = gone && player.isNull();
        if (gone || waited.elapsed() > 2000)
            break;
    }
    createdPlayers().removeAll(nullptr);
    deleteRenderObjectsLeftOnScreens();
    RecordingEngine::instance().journal().clear();
}

std::vector<const Operation*>& callableOps()
{
    static std::vector<const Operation*> ops;
    return ops;
}

} // namespace

/// The module's debug lines are formatted as usual but not written: writing
/// them to stderr would cost more than the commands themselves.
static void dropMessage(QtMsgType, const QMessageLogContext&, const QString&)
{
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    qInstallMessageHandler(dropMessage);
    RecordingEngine::install();
    for (int id = 1; id <= 2; ++id) {
        ScreenInfo info;
        info.screenId = id;
        info.geometry = QRect(0, 0, 640, 360);
        ScreenService::getInstance().openScreen(info);
    }
    // Closed before the services' static teardown, as a host closes its
    // screens before it ends.
    std::atexit([] { ScreenService::getInstance().closeAllScreens(); });
    for (const Operation& op : operationTable()) {
        if (op.refusal.isEmpty())
            callableOps().push_back(&op);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    for (int i = 0; i < kMaxSteps && in.remaining_bytes() > 0; ++i) {
        const Operation* op = nullptr;
        if (!pickOp(in, callableOps(), op))
            break;
        QJsonArray args;
        for (ArgKind kind : op->kinds)
            args.append(anArgument(in, kind));
        Step step;
        step.line = i + 1;
        step.op = op->name;
        step.body = QJsonObject{{QStringLiteral("op"), op->name}, {QStringLiteral("args"), args}};
        StepOutcome outcome;
        runModuleStep(step, outcome);
        processEvents();
    }
    endAllLayers();
    return 0;
}

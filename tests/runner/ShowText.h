// Step lines for the runner tests' shows, written as a show author would.
#pragma once

#include <QString>
#include <QStringList>

namespace runner_test {

inline QString layerRef(int bank, int layer)
{
    return QStringLiteral("{\"bank\": %1, \"layer\": %2}").arg(bank).arg(layer);
}

/// creatnewlayer and setLayerMediaType: a layer showing `path` (may use ${media}).
inline QString createLayer(int bank, int layer, const QString& path, const QString& type,
                           int lengthMs = 4000)
{
    return QStringLiteral("{\"op\": \"creatnewlayer\", \"args\": [{\"bankId\": %1, \"layerId\": %2, "
                          "\"path\": \"%3\", \"groupID\": 1, \"type\": \"%4\", \"timeLenMsec\": %5, "
                          "\"isSetPr\": false}]}\n"
                          "{\"op\": \"setLayerMediaType\", \"args\": [%6, \"%4\"]}\n")
        .arg(bank)
        .arg(layer)
        .arg(path, type)
        .arg(lengthMs)
        .arg(layerRef(bank, layer));
}

/// addRenderer: the layer's picture (originally ow x oh) at (x, y), w x h on
/// the screen, all of it visible.
inline QString addRenderer(int bank, int layer, int screen, int x, int y, int w, int h, int ow,
                           int oh)
{
    return QStringLiteral("{\"op\": \"addRenderer\", \"args\": [{\"bankId\": %1, \"layerId\": %2, "
                          "\"screenId\": %3, \"screenType\": 0, \"clientGuid\": \"\", \"frameX\": 0, "
                          "\"frameY\": 0, \"rendererX\": %4, \"rendererY\": %5, \"crossWidth\": %6, "
                          "\"crossHeight\": %7, \"originalWidth\": %8, \"originalHeight\": %9, "
                          "\"actualWidth\": %6, \"actualHeight\": %7, \"layerRotation\": 0, "
                          "\"isScal\": false, \"isRotation\": false, \"isFill\": false, "
                          "\"relativeX\": 0, \"relativeY\": 0}]}\n")
        .arg(bank)
        .arg(layer)
        .arg(screen)
        .arg(x)
        .arg(y)
        .arg(w)
        .arg(h)
        .arg(ow)
        .arg(oh);
}

inline QString openScreen(int id, int w = 640, int h = 360)
{
    return QStringLiteral("{\"op\": \"openScreen\", \"id\": %1, \"width\": %2, \"height\": %3}\n")
        .arg(id)
        .arg(w)
        .arg(h);
}

inline QString step(const QString& op, const QString& args)
{
    return QStringLiteral("{\"op\": \"%1\", \"args\": [%2]}\n").arg(op, args);
}

inline QString waitFor(const QString& signal, const QString& args = QString(), int timeoutMs = 15000)
{
    return QStringLiteral("{\"op\": \"waitFor\", \"signal\": \"%1\"%2, \"timeoutMs\": %3}\n")
        .arg(signal, args.isEmpty() ? QString() : QStringLiteral(", \"args\": ") + args)
        .arg(timeoutMs);
}

} // namespace runner_test

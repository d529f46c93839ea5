// MediaRoots: the folders a show's layers may open media from (--media-root,
// repeatable).
//
// Without roots every source is passed to the module as written. With roots,
// a module step that opens media (creatnewlayer's "path", changeLayerContent's
// and pptPageUpDown's "videoPath"; for "ndi" the source joined with "#" and
// the stream name, as the module opens it) runs only when that source is an
// existing local file whose real path (symbolic links and ".." resolved) lies
// inside a root's real path. Everything else is refused with an error line
// and the step is not run: URLs and other non-file sources ("av://...",
// "http://...", capture devices, NDI and other stream names), standard input
// ("-"), missing files, folders and files outside every root. An empty source
// (which opens nothing) passes. Relative sources are resolved against the
// runner's working directory, as the media engine resolves them.
//
// Threading: GUI thread (set once at start-up, read by the steps).
#pragma once

#include <QJsonArray>
#include <QString>
#include <QStringList>

struct Operation;

namespace mediaroots {

/// Sets the roots (canonical paths of existing folders); empty: no check.
void setRoots(const QStringList& canonicalRoots);
const QStringList& roots();

/// Canonical path of a root given on the command line; false with `error`
/// when it is not an existing folder.
bool canonicalRoot(const QString& given, QString& canonical, QString& error);

/// Whether `source` may be opened; false with `why`.
bool sourceAllowed(const QString& source, QString& why);

/// Checks the media a module step would open; true when the operation opens
/// none, no roots are set, or every source is allowed. False with `why`.
bool stepAllowed(const Operation& op, const QJsonArray& args, QString& why);

} // namespace mediaroots

// Parsing one line of a show: blank lines and '#' comments are skipped; a
// step is a JSON object {"op": "<name>", ...}. String values may name
// variables as ${name} (from --set NAME=VALUE, plus "out" and "show_dir");
// "$$" writes a single "$".
//
// A step's text must be one JSON object with no duplicate key (at any depth)
// and at most kMaxJsonDepth levels of nesting (JsonValidation.h); anything
// else is an error line.
//
// Threading: any (pure functions; no Qt application needed). Bytes to steps:
// LineAssembler::feed()/finish()/takeLine(), then parseStep() on each line.
#pragma once

#include "LineAssembler.h"

#include <QJsonObject>
#include <QMap>
#include <QString>

struct Step
{
    int line = 0;     ///< line number within its source
    QString op;       ///< the step's "op" (empty when the line did not parse)
    QJsonObject body; ///< the whole object, variables expanded
};

enum class ParseOutcome { Skip, Parsed, Error };

/// Parses `raw` into `step`; on Error `problem` says why (step.line and,
/// when it could be read, step.op are set).
ParseOutcome parseStep(const RawLine& raw, const QMap<QString, QString>& variables, Step& step,
                       QString& problem);

/// Replaces ${name} in `text`; false with `problem` for an unknown name or
/// an unclosed "${".
bool expandVariables(const QString& text, const QMap<QString, QString>& variables, QString& out,
                     QString& problem);

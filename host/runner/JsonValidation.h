// JsonValidation: the first look at a step's text, before Qt builds the
// object. A step is refused when its text is not one well-formed JSON value,
// when an object anywhere in it has the same key twice, or when it nests
// deeper than kMaxJsonDepth objects and arrays.
//
// Qt's parser keeps the memory of every value of a duplicated key until the
// document is gone (megabytes for a line of repeated object-valued keys) and
// recurses once per nesting level; nlohmann's SAX parser, used here, is
// iterative and lets the handler stop at the first offence, so the cost of
// checking a line is bounded by its length whatever it holds.
//
// Threading: any (pure function, no Qt application needed).
#pragma once

#include <QByteArray>
#include <QString>

/// Most objects and arrays one step may nest (the step's own object counts).
constexpr int kMaxJsonDepth = 32;

/// Longest key quoted in a problem text; longer keys are cut with "...".
constexpr int kMaxQuotedKey = 64;

/// true when `text` is one JSON value with no duplicate key and no deeper
/// nesting than kMaxJsonDepth; otherwise false and `problem` says why
/// ("malformed JSON: ... at column N", "duplicate key \"k\" ...",
/// "JSON nested deeper than 32 levels ...").
bool validateStepJson(const QByteArray& text, QString& problem);

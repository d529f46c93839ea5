// What running one step gave: an ok line (with extra fields), an error line,
// or nothing yet (the step suspended its source and answers later).
#pragma once

#include "JsonLine.h"

#include <QString>

struct StepOutcome
{
    enum class Kind { Ok, Error, Pending };
    Kind kind = Kind::Ok;
    QString problem; ///< Error: what was wrong
    JsonLine extra;  ///< Ok: fields after "line" (a query's "result", ...)

    static StepOutcome ok(JsonLine extra = JsonLine())
    {
        StepOutcome o;
        o.extra = std::move(extra);
        return o;
    }
    static StepOutcome error(QString problem)
    {
        StepOutcome o;
        o.kind = Kind::Error;
        o.problem = std::move(problem);
        return o;
    }
    static StepOutcome pending()
    {
        StepOutcome o;
        o.kind = Kind::Pending;
        return o;
    }
};

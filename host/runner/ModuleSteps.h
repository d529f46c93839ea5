// Runs a step that names a module operation: checks the step's keys and its
// "args" against the operation table, converts them and calls.
//
// Threading: GUI thread.
#pragma once

#include "StepOutcome.h"
#include "StepParser.h"

/// false when no module operation has the step's name.
bool runModuleStep(const Step& step, StepOutcome& outcome);

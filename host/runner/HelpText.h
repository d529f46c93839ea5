// The --help text, in the sections of a manual page. The module operations
// are listed from the operation table, so the help never lags behind it.
#pragma once

#include <QString>

QString helpText();

#pragma once
#include <QStringList>

// corvane sharpness [--json] [--sensitivity strict|normal|loose] DIR: measures every shot of a
// folder (through the shared sharpness cache) and prints its score, focus point and verdict.
int sharpnessCommand(const QStringList &args);

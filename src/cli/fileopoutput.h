#pragma once
// What the file-operation commands (rename, copy, move, trash, undo) share on the terminal.
#include "fileops/fileopoutcome.h"

namespace FileOpOutput {

// Puts right what a crash of an earlier run left, before anything else is touched, and says so.
void recover();
// The outcome: each failed shot's line and any error on stderr, the result on stdout. Returns
// the exit status: 0 when every shot was done.
int print(const FileOpOutcome &outcome);

} // namespace FileOpOutput

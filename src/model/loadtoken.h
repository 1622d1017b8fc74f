#pragma once
// Cancellation of one folder load: the GUI thread cancels, the listing's worker polls.
#include "util/canceltoken.h"

#include <memory>

using LoadToken = CancelToken;
using LoadTokenPtr = std::shared_ptr<LoadToken>;

#pragma once

#include "gateway.h"
#include "http_server.h"
#include "stage.h"

#include <functional>

namespace gateway {

/// What the request on that connection gets with such a fault, any but a delay. What lies below
/// HTTP is left to the stage. `ownAnswer` makes the answer that the fault spoils, if it needs one.
HttpReply replyWith(const Fault& fault, const std::function<Answer()>& ownAnswer, Stage& stage,
                    int relayPort);

/// Whether the client gets something below HTTP in place of an answer. False without a fault.
bool takesPlaceOfAnswer(const Fault* fault);

}  // namespace gateway

// What the typed cores of the interactive field operations give back.
#pragma once

#include <string>

#include "api/field_selection.h"

namespace tundrel {

// The function a core appended to the container, or the message that refused
// it: the text the operation's dialog or the operation itself would show.
// Neither (no function, empty message) where the operation ends without a
// word. `facts` tells what the run found; meaningful with a function.
// `stopped`: the host asked the run to stop at a progress step, and it ended
// there with the container unchanged (no function, no message).
template <class Facts>
struct CoreResult {
    arrayWorks::ScalarFunction* function = nullptr;
    std::string message;
    Facts facts{};
    bool stopped = false;

    explicit operator bool() const noexcept { return function != nullptr; }

    static CoreResult refused(std::string why) {
        CoreResult r;
        r.message = std::move(why);
        return r;
    }
    static CoreResult stoppedEarly() {
        CoreResult r;
        r.stopped = true;
        return r;
    }
};

}  // namespace tundrel

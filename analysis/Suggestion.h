// A proposed edit and the lines that tell the user what it would change.
#pragma once

#include <chrono>
#include <string>
#include <variant>
#include <vector>

#include "AIAdvice.h"
#include "edit/Adjustments.h"

namespace ql {

struct SuggestionChange {
    std::string id;  // generated
    std::string label, from, to;
};

struct Suggestion {
    AIAdvice advice;
    Adjustments result;
    std::vector<SuggestionChange> changes;
};

namespace AIState {
struct Idle {};
struct Running {
    std::chrono::system_clock::time_point started;
};
struct Done {
    Suggestion suggestion;
};
struct Failed {
    std::string message;
};
}  // namespace AIState
using AIStateValue = std::variant<AIState::Idle, AIState::Running, AIState::Done, AIState::Failed>;

/// What `to` changes against `from`, a line per field that differs by more than 0.001, in the
/// order a photographer reads them.
std::vector<SuggestionChange> changes(const Adjustments& from, const Adjustments& to, bool isRAW);

}  // namespace ql

#include "host/answer.h"

#include <algorithm>

namespace host
{

ExitStatus Answer::status() const
{
    using transaction::Outcome;
    if (result && !reply) {
        return no_reply;
    }
    const bool is_failure =
        !error.empty() || std::any_of(outcomes.begin(), outcomes.end(), [](const Outcome& each) {
            return each.kind == Outcome::not_handled;
        });
    return is_failure ? operation_failed : success;
}

} // namespace host

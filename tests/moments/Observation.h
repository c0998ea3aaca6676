#pragma once

#include <map>
#include <string>

namespace ZNORBMOMENTS {

/// What a life showed to the outside: questions and their answers, all texts.
using Observation = std::map<std::string, std::string>;

/// "nobody" where the question did not come up.
std::string answer(const Observation& answers, const std::string& question);

/// What differs from a life in which nothing happened, in words; "as ever" when nothing does. The replies and
/// the clients of a daemon that did not come to its usual end do not count, unless they are wrong.
std::string difference(const Observation& usual, const Observation& seen);

} // namespace ZNORBMOMENTS

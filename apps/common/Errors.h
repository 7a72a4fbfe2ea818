#pragma once
// The two ways a front end's run fails, shared by zostat and the Python
// module so that the same mistake reads the same in both. Every message
// begins with its identifier ("[EUa057] An option's value is outside ...").
#include <stdexcept>
#include <string>

namespace ZOC::front {

// A mistake in what the user asked for (an option's value, a missing
// option): zostat reports it with the usage and exit status 2, Python raises
// it as a ValueError. One made from plain text gets the general "EUa050"
// when printed.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
  UsageError(const char* id, const std::string& detail);
};

// A failure of the run itself (an input that cannot be opened, the
// library's messages): exit status 1, or a StatisticsAnalystError.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// "[ID] catalogue text (detail)".
std::string MessageText(const char* id, const std::string& detail);
// Whether a message already names an identifier such as "[ESa014]".
bool HasIdentifier(const std::string& text);

}  // namespace ZOC::front

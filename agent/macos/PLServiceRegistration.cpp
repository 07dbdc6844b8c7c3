#include "agent/PLServiceRegistration.h"

// A listener of another process than launchd's own child comes up all the same, and never hears of
// a connection: launchd has its name for nobody, or for somebody else.
std::optional<std::string> PLServiceRegistrationProblem(pid_t parent) {
  const pid_t launchd = 1;
  if (parent == launchd) {
    return std::nullopt;
  }
  return "only launchd can register the service, as it does for scripts/agent with the same "
         "options";
}

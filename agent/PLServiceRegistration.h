#ifndef PL_SERVICE_REGISTRATION_H
#define PL_SERVICE_REGISTRATION_H

#include <sys/types.h>

#include <optional>
#include <string>

/// Why a process whose parent is `parent` cannot offer the agent's service, in one line; nothing if
/// it can.
std::optional<std::string> PLServiceRegistrationProblem(pid_t parent);

#endif

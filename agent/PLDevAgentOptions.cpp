#include "agent/PLDevAgentOptions.h"

#include <getopt.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace {

/// What a method's reply carries, and so which faults it can have.
struct Method {
  const char *selector;
  bool hasReply;
  bool repliesObject;
  bool repliesError;
};

constexpr std::array<Method, 7> sMethods = {{
    {"checkConnectionWithCallback:", true, false, false},
    {"reportUsageEvent:eventInfo:", false, false, false},
    {"fetchAskingPermissionStatus:", true, true, false},
    {"updateAllowedCustomerEmail:callback:", true, false, false},
    {"showReleaseNotesForAppWithCallback:", true, true, true},
    {"xpcAPIVersionWithCallback:", true, true, true},
    {"provideAuthCodeWithClientID:scope:callback:", true, true, true},
}};

const Method *MethodNamed(const std::string &selector) {
  for (const Method &method : sMethods) {
    if (selector == method.selector) {
      return &method;
    }
  }
  return nullptr;
}

std::optional<long> WholeNumber(const char *text, long lowest) {
  char *end = nullptr;
  errno = 0;
  const long value = std::strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || value < lowest) {
    return std::nullopt;
  }
  return value;
}

/// Reads DOMAIN:CODE:TEXT.
std::optional<PLDevAgentError> ReadError(const std::string &text) {
  const std::size_t first = text.find(':');
  const std::size_t second =
      first == std::string::npos ? std::string::npos : text.find(':', first + 1);
  if (second == std::string::npos || first == 0) {
    return std::nullopt;
  }
  const std::string number = text.substr(first + 1, second - first - 1);
  const std::optional<long> code = WholeNumber(number.c_str(), LONG_MIN + 1);
  if (!code) {
    return std::nullopt;
  }
  return PLDevAgentError{text.substr(0, first), *code, text.substr(second + 1)};
}

/// getopt_long's own complaint would not be one clear line, so `opterr` is off and this stands in.
std::string OptionProblem(int result, char *const arguments[]) {
  const std::string text = arguments[optind - 1];
  return result == ':' ? "option needs a value: " + text : "unknown option: " + text;
}

enum Option : int {
  kShouldAsk = 256,
  kAlwaysAsk,
  kState,
  kEmail,
  kNoEmail,
  kReplyDelay,
  kHang,
  kDieOn,
  kDrop,
  kTwice,
  kWrongType,
  kError,
  kAuthCode,
  kApiVersion,
  kPid,
  kAppName,
};

}  // namespace

const char *PLDevAgentOptions::help() {
  return "  --should-ask yes|no             whether the customer is to be asked, until the answer "
         "yes\n"
         "                                  or no was reported (yes)\n"
         "  --always-ask                    after an answer, too\n"
         "  --state FILE                    remember in FILE, for the next run, that there was "
         "one\n"
         "  --email ADDRESS | --no-email    the customer's address (customer@example.com)\n"
         "  --auth-code CODE                the authorization code (development-code)\n"
         "  --api-version VERSION           the version of the interface (1.0)\n"
         "  --reply-delay MS                wait before each reply (0)\n"
         "  --hang SELECTOR                 never return from this method\n"
         "  --die-on SELECTOR               end the agent when this method is called\n"
         "  --drop SELECTOR                 let this method's reply go unsent\n"
         "  --twice SELECTOR                reply twice to this method\n"
         "  --wrong-type SELECTOR           reply with objects of a wrong class\n"
         "  --error SELECTOR=DOMAIN:CODE:TEXT\n"
         "                                  reply to this method with an error\n";
}

std::optional<std::string> PLDevAgentOptions::parse(int count, char *const arguments[]) {
  static const option sOptions[] = {
      {"should-ask", required_argument, nullptr, kShouldAsk},
      {"always-ask", no_argument, nullptr, kAlwaysAsk},
      {"state", required_argument, nullptr, kState},
      {"email", required_argument, nullptr, kEmail},
      {"no-email", no_argument, nullptr, kNoEmail},
      {"reply-delay", required_argument, nullptr, kReplyDelay},
      {"hang", required_argument, nullptr, kHang},
      {"die-on", required_argument, nullptr, kDieOn},
      {"drop", required_argument, nullptr, kDrop},
      {"twice", required_argument, nullptr, kTwice},
      {"wrong-type", required_argument, nullptr, kWrongType},
      {"error", required_argument, nullptr, kError},
      {"auth-code", required_argument, nullptr, kAuthCode},
      {"api-version", required_argument, nullptr, kApiVersion},
      {},
  };

  opterr = 0;
  optind = 1;
  for (;;) {
    const int result = getopt_long(count, arguments, ":", sOptions, nullptr);
    if (result == -1) {
      break;
    }
    const std::string value = optarg ? optarg : "";
    switch (result) {
      case kShouldAsk:
        if (value != "yes" && value != "no") {
          return "--should-ask takes yes or no, not: " + value;
        }
        asking = value == "yes" ? PLDevAgentAsking::kUntilAnswered : PLDevAgentAsking::kNever;
        continue;
      case kAlwaysAsk:
        asking = PLDevAgentAsking::kAlways;
        continue;
      case kState:
        stateFile = value;
        continue;
      case kEmail:
        email = value;
        continue;
      case kNoEmail:
        email.reset();
        continue;
      case kReplyDelay: {
        const std::optional<long> delay = WholeNumber(value.c_str(), 0);
        if (!delay) {
          return "--reply-delay takes milliseconds, not: " + value;
        }
        replyDelayMilliseconds = *delay;
        continue;
      }
      case kAuthCode:
        authorizationCode = value;
        continue;
      case kApiVersion:
        apiVersion = value;
        continue;
      case ':':
      case '?':
        return OptionProblem(result, arguments);
      default:
        break;
    }

    // What is left is about one method.
    const std::size_t equals = result == kError ? value.find('=') : std::string::npos;
    const std::string selector = value.substr(0, equals);
    const Method *method = MethodNamed(selector);
    if (!method) {
      return "the agent has no method: " + selector;
    }
    PLDevAgentFault &fault = faults[selector];
    switch (result) {
      case kHang:
        fault.hangs = true;
        break;
      case kDieOn:
        fault.dies = true;
        break;
      case kDrop:
      case kTwice:
        if (!method->hasReply) {
          return "the method has no reply: " + selector;
        }
        (result == kDrop ? fault.dropsReply : fault.repliesTwice) = true;
        break;
      case kWrongType:
        if (!method->repliesObject) {
          return "the method's reply carries no object: " + selector;
        }
        fault.repliesWrongType = true;
        break;
      default:
        if (!method->repliesError) {
          return "the method's reply carries no error: " + selector;
        }
        fault.error =
            equals == std::string::npos ? std::nullopt : ReadError(value.substr(equals + 1));
        if (!fault.error) {
          return "--error takes SELECTOR=DOMAIN:CODE:TEXT, not: " + value;
        }
        break;
    }
  }
  if (optind < count) {
    return std::string("unknown argument: ") + arguments[optind];
  }
  return std::nullopt;
}

std::optional<std::string> PLDevAgentMessage::parse(int count, char *const arguments[]) {
  static const option sOptions[] = {
      {"pid", required_argument, nullptr, kPid},
      {"app-name", required_argument, nullptr, kAppName},
      {},
  };

  opterr = 0;
  optind = 1;
  for (;;) {
    // A leading "+": the message may begin with a dash after the first plain word.
    const int result = getopt_long(count, arguments, "+:", sOptions, nullptr);
    if (result == -1) {
      break;
    }
    switch (result) {
      case kPid: {
        const std::optional<long> number = WholeNumber(optarg, 1);
        if (!number) {
          return std::string("--pid takes the number of a process, not: ") + optarg;
        }
        pid = *number;
        break;
      }
      case kAppName:
        appName = optarg;
        break;
      default:
        return OptionProblem(result, arguments);
    }
  }
  if (pid == 0) {
    return "log needs --pid PID: a message is addressed to one process";
  }
  if (optind != count - 1) {
    return "log takes one MESSAGE";
  }
  text = arguments[optind];
  return std::nullopt;
}

#include "agent/PLDevAgentOptions.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace {

/// Holds the words of a command line in the form that main gets them.
class CommandLine {
 public:
  CommandLine(std::initializer_list<std::string> words) : words_(words) {
    for (std::string &word : words_) {
      pointers_.push_back(word.data());
    }
  }
  int count() const { return static_cast<int>(pointers_.size()); }
  char *const *arguments() const { return pointers_.data(); }

 private:
  std::vector<std::string> words_;
  std::vector<char *> pointers_;
};

std::string ProblemOf(std::initializer_list<std::string> words) {
  const CommandLine line(words);
  PLDevAgentOptions options;
  return options.parse(line.count(), line.arguments()).value_or("");
}

}  // namespace

TEST(DevAgentOptions, AskByDefault) {
  const CommandLine line{"serve"};
  PLDevAgentOptions options;
  EXPECT_FALSE(options.parse(line.count(), line.arguments()));
  EXPECT_EQ(options.asking, PLDevAgentAsking::kUntilAnswered);
  EXPECT_FALSE(options.stateFile);
  EXPECT_EQ(options.email, "customer@example.com");
  EXPECT_EQ(options.replyDelayMilliseconds, 0);
  EXPECT_TRUE(options.faults.empty());
}

TEST(DevAgentOptions, TakeEachAnswer) {
  const CommandLine line{"serve", "--should-ask", "no",  "--no-email",    "--reply-delay",
                         "150",   "--auth-code",  "abc", "--api-version", "7"};
  PLDevAgentOptions options;
  EXPECT_FALSE(options.parse(line.count(), line.arguments()));
  EXPECT_EQ(options.asking, PLDevAgentAsking::kNever);
  EXPECT_FALSE(options.email);
  EXPECT_EQ(options.replyDelayMilliseconds, 150);
  EXPECT_EQ(options.authorizationCode, "abc");
  EXPECT_EQ(options.apiVersion, "7");
}

TEST(DevAgentOptions, TakeTheLastWordOnAsking) {
  const CommandLine line{"serve", "--should-ask", "no", "--always-ask", "--state", "file"};
  PLDevAgentOptions options;
  EXPECT_FALSE(options.parse(line.count(), line.arguments()));
  EXPECT_EQ(options.asking, PLDevAgentAsking::kAlways);
  EXPECT_EQ(options.stateFile, "file");
}

TEST(DevAgentOptions, KeepFaultsBySelector) {
  const CommandLine line{"serve", "--hang", "fetchAskingPermissionStatus:", "--error",
                         "showReleaseNotesForAppWithCallback:=com.example:-7:no: notes"};
  PLDevAgentOptions options;
  EXPECT_FALSE(options.parse(line.count(), line.arguments()));
  EXPECT_TRUE(options.faults["fetchAskingPermissionStatus:"].hangs);
  const auto &error = options.faults["showReleaseNotesForAppWithCallback:"].error;
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "com.example");
  EXPECT_EQ(error->code, -7);
  EXPECT_EQ(error->text, "no: notes");
}

TEST(DevAgentOptions, RefuseWhatTheyDoNotKnow) {
  EXPECT_EQ(ProblemOf({"serve", "--colour"}), "unknown option: --colour");
  EXPECT_EQ(ProblemOf({"serve", "--email"}), "option needs a value: --email");
  EXPECT_EQ(ProblemOf({"serve", "surplus"}), "unknown argument: surplus");
  EXPECT_EQ(ProblemOf({"serve", "--should-ask", "maybe"}),
            "--should-ask takes yes or no, not: maybe");
  EXPECT_EQ(ProblemOf({"serve", "--reply-delay", "-1"}),
            "--reply-delay takes milliseconds, not: -1");
  EXPECT_EQ(ProblemOf({"serve", "--hang", "nothing:"}), "the agent has no method: nothing:");
}

TEST(DevAgentOptions, RefuseAFaultThatTheMethodCannotHave) {
  EXPECT_EQ(ProblemOf({"serve", "--twice", "reportUsageEvent:eventInfo:"}),
            "the method has no reply: reportUsageEvent:eventInfo:");
  EXPECT_EQ(ProblemOf({"serve", "--wrong-type", "checkConnectionWithCallback:"}),
            "the method's reply carries no object: checkConnectionWithCallback:");
  EXPECT_EQ(ProblemOf({"serve", "--error", "fetchAskingPermissionStatus:=a:1:b"}),
            "the method's reply carries no error: fetchAskingPermissionStatus:");
  EXPECT_EQ(ProblemOf({"serve", "--error", "xpcAPIVersionWithCallback:=a:b:c"}),
            "--error takes SELECTOR=DOMAIN:CODE:TEXT, not: xpcAPIVersionWithCallback:=a:b:c");
}

TEST(DevAgentMessage, NeedsAProcess) {
  const CommandLine line{"log", "hello"};
  PLDevAgentMessage message;
  EXPECT_EQ(message.parse(line.count(), line.arguments()),
            "log needs --pid PID: a message is addressed to one process");
}

TEST(DevAgentMessage, TakesOneText) {
  PLDevAgentMessage message;
  const CommandLine dashed{"log", "--pid", "42", "--app-name", "Editor", "--", "-- 100 % --"};
  EXPECT_FALSE(message.parse(dashed.count(), dashed.arguments()));
  EXPECT_EQ(message.pid, 42);
  EXPECT_EQ(message.appName, "Editor");
  EXPECT_EQ(message.text, "-- 100 % --");

  const CommandLine two{"log", "--pid", "42", "one", "two"};
  EXPECT_EQ(message.parse(two.count(), two.arguments()), "log takes one MESSAGE");
}

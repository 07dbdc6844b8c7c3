#include <gtest/gtest.h>

#include <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#import "DaemonLink.h"

// The daemon is found through files in the temporary folder. This program gives itself one of its
// own, so that it meets no other daemon, and a PATH without the daemon, so that only the tests
// start it; then it runs itself once more, since Foundation reads the environment before `main`.

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kDaemon[] = "/usr/bin/gdnc";

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

bool RunLoopUntil(bool (^done)(void), double seconds = 40) {
  Clock::time_point start = Clock::now();
  while (!done() && SecondsSince(start) < seconds) {
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                             beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.02]];
    [pool release];
  }
  return done();
}

std::string SelfPath() {
  char path[4096];
  ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
  return std::string(path, length > 0 ? length : 0);
}

/// A program that runs beside this one.
class Child {
 public:
  Child(const std::string &program, const std::vector<std::string> &arguments,
        const std::string &output = "/dev/null") {
    std::vector<char *> argv{const_cast<char *>(program.c_str())};
    for (const std::string &argument : arguments) {
      argv.push_back(const_cast<char *>(argument.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&files, 1, 2);
    EXPECT_EQ(0, posix_spawn(&pid_, program.c_str(), &files, nullptr, argv.data(), environ));
    posix_spawn_file_actions_destroy(&files);
  }
  ~Child() {
    if (!pid_) {
      return;
    }
    kill(pid_, SIGKILL);
    wait();
  }

  void signal(int number) { kill(pid_, number); }

  /// As a debugger does it: the daemon ends at SIGCONT.
  bool suspend() {
    int status;
    return ptrace(PTRACE_SEIZE, pid_, 0, 0) == 0 && ptrace(PTRACE_INTERRUPT, pid_, 0, 0) == 0 &&
           waitpid(pid_, &status, 0) == pid_ && WIFSTOPPED(status);
  }
  void resume() { ptrace(PTRACE_DETACH, pid_, 0, 0); }

  /// Returns the exit status, or the negative number of the signal that ended it.
  int wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  bool hasEnded() {
    int status;
    if (pid_ && waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = 0;
    }
    return !pid_;
  }

 private:
  pid_t pid_ = 0;
};

/// Runs this program in one of the roles below and returns its exit status.
int RunRole(const std::vector<std::string> &arguments, const std::string &output = "/dev/null") {
  return Child(SelfPath(), arguments, output).wait();
}

std::string Read(const std::string &path) {
  std::ifstream file(path);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

NSString *const kName = @"com.example.notification";
NSString *const kText = @"text";

NSDictionary *UserInfo(NSString *text) {
  return [NSDictionary dictionaryWithObject:text forKey:kText];
}

void Post(NSString *object, NSString *text) {
  CFNotificationCenterPostNotification(CFNotificationCenterGetDistributedCenter(),
                                       (CFStringRef)kName, object,
                                       text ? (CFDictionaryRef)UserInfo(text) : nullptr, true);
}

/// What one observer was told. Its address is the observer.
struct Received {
  std::vector<std::string> objects;
  NSMutableArray *texts = [NSMutableArray new];
  int withoutInfo = 0;
  bool allOnMain = true;

  ~Received() { [texts release]; }

  static void callback(CFNotificationCenterRef, void *observer, CFStringRef, const void *object,
                       CFDictionaryRef userInfo) {
    Received *self = static_cast<Received *>(observer);
    self->allOnMain = self->allOnMain && [NSThread isMainThread];
    self->objects.push_back(object ? [(NSString *)object UTF8String] : "");
    const void *text = userInfo ? CFDictionaryGetValue(userInfo, kText) : nullptr;
    if (text) {
      [self->texts addObject:(id)text];
    } else {
      ++self->withoutInfo;
    }
  }
};

class Observer {
 public:
  explicit Observer(NSString *object) : object_([object copy]) {
    CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), &received,
                                    Received::callback, (CFStringRef)kName, object_,
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
  }
  ~Observer() {
    remove();
    [object_ release];
  }

  void remove() {
    CFNotificationCenterRemoveObserver(CFNotificationCenterGetDistributedCenter(), &received,
                                       (CFStringRef)kName, nullptr);
  }

  /// Runs the run loop until the daemon knows the observer: what this process posts is sent after
  /// its observers are.
  bool await() {
    size_t before = received.withoutInfo;
    Post(object_, nil);
    Received *target = &received;
    return RunLoopUntil(^bool {
      return target->withoutInfo > (int)before;
    });
  }

  bool awaitTexts(size_t count) {
    Received *target = &received;
    return RunLoopUntil(^bool {
      return [target->texts count] >= count;
    });
  }

  Received received;

 private:
  NSString *object_;
};

class Notifications : public testing::Test {
 protected:
  void SetUp() override {
    pool_ = [NSAutoreleasePool new];
    if (access(kDaemon, X_OK)) {
      GTEST_SKIP() << "no " << kDaemon << ": gnustep-base-runtime";
    }
  }
  void TearDown() override {
    stopDaemon();
    [pool_ release];
  }

  void startDaemon() { daemon_.reset(new Child(kDaemon, {"--no-fork"})); }
  void stopDaemon() { daemon_.reset(); }

  static std::string folder() { return getenv("TEMP"); }

  std::unique_ptr<Child> daemon_;
  NSAutoreleasePool *pool_;
};

TEST_F(Notifications, ReachAnObserverOnTheMainRunLoopFromAnotherProcess) {
  startDaemon();
  Observer observer(@"17");
  ASSERT_TRUE(observer.await());
  EXPECT_EQ(0, RunRole({"post", "17", "hello"}));
  ASSERT_TRUE(observer.awaitTexts(1));
  EXPECT_TRUE([[observer.received.texts lastObject] isEqual:@"hello"]);
  EXPECT_EQ("17", observer.received.objects.back());
  EXPECT_TRUE(observer.received.allOnMain);
}

TEST_F(Notifications, ForAnotherObjectAreNotReceived) {
  startDaemon();
  Observer observer(@"18");
  ASSERT_TRUE(observer.await());
  EXPECT_EQ(0, RunRole({"post", "19", "not for us"}));
  EXPECT_EQ(0, RunRole({"post", "18", "for us"}));
  ASSERT_TRUE(observer.awaitTexts(1));
  EXPECT_EQ(1u, [observer.received.texts count]);
  EXPECT_TRUE([[observer.received.texts lastObject] isEqual:@"for us"]);
}

TEST_F(Notifications, AreExchangedWithFoundationsOwnCenter) {
  startDaemon();
  Observer observer(@"20");
  ASSERT_TRUE(observer.await());
  EXPECT_EQ(0, RunRole({"foundation-post", "20", "from Foundation"}));
  ASSERT_TRUE(observer.awaitTexts(1));
  EXPECT_TRUE([[observer.received.texts lastObject] isEqual:@"from Foundation"]);

  std::string log = folder() + "/observed";
  Child foundation(SelfPath(), {"foundation-observe", "21"}, log);
  ASSERT_TRUE(RunLoopUntil(^bool {
    return Read(log).find("ready") != std::string::npos;
  }));
  Post(@"21", @"to Foundation");
  ASSERT_TRUE(RunLoopUntil(^bool {
    return Read(log).find("to Foundation") != std::string::npos;
  }));
  EXPECT_EQ(0, foundation.wait());
}

TEST_F(Notifications, OfABurstAllArriveInOrder) {
#if __has_feature(address_sanitizer)
  constexpr int kCount = 2000;  // It walks the stack at every allocation.
#else
  constexpr int kCount = 10000;
#endif
  startDaemon();
  Observer observer(@"22");
  ASSERT_TRUE(observer.await());
  // The observer's run loop does not run meanwhile.
  EXPECT_EQ(0, RunRole({"post-many", "22", std::to_string(kCount)}));
  ASSERT_TRUE(observer.awaitTexts(kCount)) << [observer.received.texts count];
  for (int i = 0; i < kCount; ++i) {
    ASSERT_EQ(i, [[observer.received.texts objectAtIndex:i] intValue]);
  }
}

TEST_F(Notifications, CarryLongAndOddTexts) {
  startDaemon();
  Observer observer(@"23");
  ASSERT_TRUE(observer.await());
  NSMutableString *longText = [NSMutableString string];
  for (int i = 0; i < 8 << 20; i += 16) {
    [longText appendString:@"0123456789abcdef"];
  }
  unichar zero[] = {'a', 0, 'b', 0x4e00};
  NSString *withZero = [NSString stringWithCharacters:zero length:4];
  unichar lone[] = {'a', 0xd800, 'b'};
  NSString *withLoneSurrogate = [NSString stringWithCharacters:lone length:3];
  NSMutableString *tooLong = [NSMutableString string];
  for (int i = 0; i < 4; ++i) {
    [tooLong appendString:longText];
  }
  Post(@"23", longText);
  Post(@"23", withZero);
  Post(@"23", withLoneSurrogate);
  Post(@"23", tooLong);
  Post(@"23", @"after them");
  Received *received = &observer.received;
  ASSERT_TRUE(RunLoopUntil(^bool {
    return [[received->texts lastObject] isEqual:@"after them"];
  }));
  EXPECT_TRUE([[received->texts objectAtIndex:0] isEqual:longText]);
  EXPECT_TRUE([[received->texts objectAtIndex:1] isEqual:withZero]);
  EXPECT_FALSE([received->texts containsObject:tooLong]);
}

TEST_F(Notifications, ThatCannotBeReadAreDropped) {
  startDaemon();
  Observer observer(@"24");
  ASSERT_TRUE(observer.await());
  DaemonLink *link = [[DaemonLink alloc] initWithReceiver:nil];
  ASSERT_NE(nil, link);
  NSData *noise = [@"this is no archive" dataUsingEncoding:NSUTF8StringEncoding];
  NSData *array =
      [NSArchiver archivedDataWithRootObject:[NSArray arrayWithObject:@"no dictionary"]];
  EXPECT_TRUE([link postName:kName object:@"24" userInfo:noise deliverImmediately:YES]);
  EXPECT_TRUE([link postName:kName object:@"24" userInfo:array deliverImmediately:YES]);
  EXPECT_TRUE([link postName:kName
                      object:@"24"
                    userInfo:[NSArchiver archivedDataWithRootObject:UserInfo(@"readable")]
          deliverImmediately:YES]);
  ASSERT_TRUE(observer.awaitTexts(1));
  EXPECT_TRUE([[observer.received.texts lastObject] isEqual:@"readable"]);
  [link close];
  [link release];
}

TEST_F(Notifications, WhoseUserInfoCannotBeSentAreDropped) {
  startDaemon();
  Observer observer(@"25");
  ASSERT_TRUE(observer.await());
  CFNotificationCenterPostNotification(
      CFNotificationCenterGetDistributedCenter(), (CFStringRef)kName, @"25",
      (CFDictionaryRef)[NSDictionary dictionaryWithObject:[[NSObject new] autorelease]
                                                   forKey:kText],
      true);
  Post(@"25", @"plain");
  ASSERT_TRUE(observer.awaitTexts(1));
  EXPECT_TRUE([[observer.received.texts lastObject] isEqual:@"plain"]);
}

TEST_F(Notifications, EndWithTheRemovalOfTheirObserver) {
  startDaemon();
  Observer removed(@"26");
  Observer kept(@"26");
  ASSERT_TRUE(removed.await());
  ASSERT_TRUE(kept.await());
  int before = static_cast<int>(removed.received.objects.size());
  removed.remove();
  Post(@"26", @"later");
  ASSERT_TRUE(kept.awaitTexts(1));
  EXPECT_EQ(before, static_cast<int>(removed.received.objects.size()));
}

TEST_F(Notifications, OnTheirWayAreNotDeliveredAfterTheRemoval) {
  startDaemon();
  Observer removed(@"27");
  Observer kept(@"27");
  ASSERT_TRUE(removed.await());
  ASSERT_TRUE(kept.await());
  Post(@"27", @"on its way");
  // Long enough for it to wait in the main queue, which is not drained here.
  usleep(100000);
  int before = static_cast<int>(removed.received.objects.size());
  removed.remove();
  ASSERT_TRUE(kept.awaitTexts(1));
  EXPECT_EQ(before, static_cast<int>(removed.received.objects.size()));
}

TEST_F(Notifications, AreNotHeldUpByOneWhoNeverReads) {
  startDaemon();
  Observer observer(@"28");
  ASSERT_TRUE(observer.await());
  std::string log = folder() + "/silent";
  Child silent(SelfPath(), {"foundation-observe", "29"}, log);
  ASSERT_TRUE(RunLoopUntil(^bool {
    return Read(log).find("ready") != std::string::npos;
  }));
  silent.signal(SIGSTOP);
  Post(@"29", @"to the silent one");
  Post(@"28", @"to us");
  EXPECT_TRUE(observer.awaitTexts(1));
}

TEST_F(Notifications, PostedJustBeforeTheEndOfTheProcessAreStillSent) {
  startDaemon();
  Observer observer(@"34");
  ASSERT_TRUE(observer.await());
  EXPECT_EQ(0, RunRole({"post-and-exit", "34", "last words"}));
  ASSERT_TRUE(observer.awaitTexts(1));
  EXPECT_TRUE([[observer.received.texts lastObject] isEqual:@"last words"]);
}

TEST_F(Notifications, PostedJustBeforeTheEndOfTheProcessWaitForADaemonThatIsSlow) {
  startDaemon();
  Observer observer(@"35");
  ASSERT_TRUE(observer.await());
  ASSERT_TRUE(daemon_->suspend());
  Child ending(SelfPath(), {"post-and-exit", "35", "late words"}, folder() + "/slow");
  usleep(500000);
  daemon_->resume();
  EXPECT_EQ(0, ending.wait());
  ASSERT_TRUE(observer.awaitTexts(1));
  EXPECT_TRUE([[observer.received.texts lastObject] isEqual:@"late words"]);
}

TEST_F(Notifications, WithoutADaemonNeitherBlockNorLog) {
  std::string log = folder() + "/missing";
  Clock::time_point start = Clock::now();
  EXPECT_EQ(0, RunRole({"without-daemon"}, log));
  EXPECT_LT(SecondsSince(start), 9);
  EXPECT_EQ("", Read(log));
}

TEST_F(Notifications, ArriveOnceTheDaemonHasComeUp) {
  Observer observer(@"30");
  usleep(300000);
  EXPECT_TRUE(observer.received.objects.empty());
  startDaemon();
  ASSERT_TRUE(observer.await());
}

TEST_F(Notifications, ArriveAgainAfterTheDaemonWasKilledAndCameBack) {
  startDaemon();
  Observer observer(@"31");
  ASSERT_TRUE(observer.await());
  for (int i = 0; i < 2; ++i) {
    stopDaemon();
    usleep(50000);
    startDaemon();
    ASSERT_TRUE(observer.await()) << i;
  }
}

TEST_F(Notifications, StartTheDaemonWhereItIsInstalledAndLeaveChildrenToTheHost) {
  std::string log = folder() + "/started";
  std::string path = getenv("PATH");
  setenv("PATH", "/usr/bin:/bin", 1);
  EXPECT_EQ(0, RunRole({"self-started"}, log)) << Read(log);
  setenv("PATH", path.c_str(), 1);
  // It runs on for a while by itself.
  pid_t pid = static_cast<pid_t>(atoi(Read(log).c_str()));
  ASSERT_GT(pid, 1) << Read(log);
  EXPECT_EQ(0, kill(pid, SIGTERM));
  RunLoopUntil(^bool {
    return kill(pid, 0) != 0;
  });
}

TEST_F(Notifications, DoNotHoldUpTheEndOfTheProcess) {
  startDaemon();
  std::string log = folder() + "/ending";
  EXPECT_EQ(0, RunRole({"observe-and-exit", "32"}, log));
  EXPECT_LT(atof(Read(log).c_str()), 5) << Read(log);
}

TEST_F(Notifications, OfAStoppedDaemonDoNotHoldUpTheEndOfTheProcess) {
  startDaemon();
  std::string log = folder() + "/ending";
  Child ending(SelfPath(), {"observe-and-exit-later", "33"}, log);
  ASSERT_TRUE(RunLoopUntil(^bool {
    return Read(log).find("ready") != std::string::npos;
  }));
  daemon_->signal(SIGSTOP);
  ending.signal(SIGUSR1);
  EXPECT_EQ(0, ending.wait());
  std::string text = Read(log);
  double took = atof(text.substr(text.find("ready") + 5).c_str());
  EXPECT_GT(took, 0) << text;
  EXPECT_LT(took, 5) << text;
}

TEST_F(Notifications, CoreFoundationObjectsAreFoundationsOwn) {
  CFStringRef text = CFStringCreateWithCString(kCFAllocatorDefault, "héllo", kCFStringEncodingUTF8);
  EXPECT_TRUE([(NSString *)text isEqual:@"héllo"]);
  EXPECT_TRUE([(NSString *)text isEqual:(NSString *)CFSTR("héllo")]);
  CFRetain(text);
  CFRelease(text);
  CFRelease(text);
  const UInt8 bytes[] = {'a', 0, 'b'};
  text = CFStringCreateWithBytes(kCFAllocatorDefault, bytes, 3, kCFStringEncodingUTF8, false);
  EXPECT_EQ(3u, [(NSString *)text length]);
  CFRelease(text);
  EXPECT_EQ(nullptr, CFStringCreateWithCString(nullptr, "\xff\xfe", kCFStringEncodingUTF8));
  EXPECT_EQ(nullptr, CFStringCreateWithCString(nullptr, "a", 0x100));
  NSDictionary *dictionary = UserInfo(@"value");
  EXPECT_EQ([dictionary objectForKey:kText],
            (id)CFDictionaryGetValue((CFDictionaryRef)dictionary, kText));
  EXPECT_EQ(nullptr, CFDictionaryGetValue((CFDictionaryRef)dictionary, @"other"));
}

// The roles of this program's children

/// Observes and posts the same: everything before it has reached the daemon when that comes back.
bool AwaitEcho(NSString *object) {
  Observer observer(object);
  return observer.await();
}

Clock::time_point sExitStart;

void PrintTimeSinceExit() {
  printf(" %.3f\n", SecondsSince(sExitStart));
  fflush(stdout);
}

/// Registered first and therefore run last.
[[noreturn]] void ExitMeasured() {
  sExitStart = Clock::now();
  exit(0);
}

volatile sig_atomic_t sSignalled;

}  // namespace

@interface FoundationObserver : NSObject {
 @public
  bool _received;
}
- (void)receive:(NSNotification *)notification;
@end

@implementation FoundationObserver
- (void)receive:(NSNotification *)notification {
  id text = [[notification userInfo] objectForKey:kText];
  printf("%s\n", text ? [text UTF8String] : "ready");
  fflush(stdout);
  if (text) {
    _received = true;
  }
}
@end

namespace {

int Role(const std::vector<std::string> &arguments) {
  const std::string &role = arguments[0];
  NSString *object =
      arguments.size() > 1 ? [NSString stringWithUTF8String:arguments[1].c_str()] : nil;
  if (role == "post") {
    Post(object, [NSString stringWithUTF8String:arguments[2].c_str()]);
    return AwaitEcho(@"echo") ? 0 : 1;
  }
  if (role == "post-and-exit") {
    Post(object, [NSString stringWithUTF8String:arguments[2].c_str()]);
    return 0;
  }
  if (role == "post-many") {
    for (int i = 0; i < std::stoi(arguments[2]); ++i) {
      Post(object, [NSString stringWithFormat:@"%d", i]);
    }
    return AwaitEcho(@"echo") ? 0 : 1;
  }
  // Left through _exit: Foundation's center keeps more than a leak detector likes.
  if (role == "foundation-post") {
    [[NSDistributedNotificationCenter defaultCenter]
        postNotificationName:kName
                      object:object
                    userInfo:UserInfo([NSString stringWithUTF8String:arguments[2].c_str()])
          deliverImmediately:YES];
    _exit(0);
  }
  if (role == "foundation-observe") {
    FoundationObserver *observer = [FoundationObserver new];
    NSDistributedNotificationCenter *center = [NSDistributedNotificationCenter defaultCenter];
    [center addObserver:observer selector:@selector(receive:) name:kName object:object];
    [center postNotificationName:kName object:object userInfo:nil deliverImmediately:YES];
    _exit(RunLoopUntil(^bool {
      return observer->_received;
    })
              ? 0
              : 1);
  }
  if (role == "without-daemon") {
    // The first queue sets Foundation up, which takes its time with or without a daemon.
    dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0);
    Clock::time_point start = Clock::now();
    {
      Observer observer(@"1");
      if (SecondsSince(start) > 2) {
        return 2;
      }
      RunLoopUntil(
          ^bool {
            return false;
          },
          0.5);
      start = Clock::now();
      Post(@"1", @"into the void");
      if (SecondsSince(start) > 2) {
        return 3;
      }
    }
    return 0;
  }
  if (role == "self-started") {
    static bool handled;
    signal(SIGCHLD, [](int) { handled = true; });
    if (!AwaitEcho(@"1")) {
      return 4;
    }
    struct sigaction action;
    sigaction(SIGCHLD, nullptr, &action);
    if (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN || !handled) {
      return 5;
    }
    NSString *names =
        [NSTemporaryDirectory() stringByAppendingPathComponent:@"NSMessagePort/names"];
    for (NSString *name in [[NSFileManager defaultManager] directoryContentsAtPath:names]) {
      NSString *path = [names stringByAppendingPathComponent:name];
      NSArray *lines = [[NSString stringWithContentsOfFile:path] componentsSeparatedByString:@"\n"];
      if ([lines count] > 1) {
        printf("%d\n", [[lines objectAtIndex:1] intValue]);
      }
    }
    return 0;
  }
  if (role == "observe-and-exit" || role == "observe-and-exit-later") {
    atexit(PrintTimeSinceExit);
    signal(SIGUSR1, [](int) { sSignalled = 1; });
    Observer observer(object);
    if (!observer.await()) {
      return 6;
    }
    if (role == "observe-and-exit-later") {
      printf("ready");
      fflush(stdout);
      if (!RunLoopUntil(^bool {
            return sSignalled != 0;
          })) {
        return 7;
      }
    }
    ExitMeasured();
  }
  return 64;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc > 1 && argv[1][0] != '-') {
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    int status = Role(std::vector<std::string>(argv + 1, argv + argc));
    [pool release];
    return status;
  }
  static const char kMark[] = "NOTIFICATIONS_TEST_FOLDER";
  if (!getenv(kMark)) {
    char folder[] = "/tmp/notifications-test-XXXXXX";
    if (!mkdtemp(folder)) {
      return 1;
    }
    setenv(kMark, folder, 1);
    setenv("TEMP", folder, 1);
    setenv("PATH", folder, 1);
    // base 1.31 asks these for the machine's architecture and gives up without an answer.
    for (const char *tool : {"dpkg-architecture", "dpkg"}) {
      (void)!symlink((std::string("/usr/bin/") + tool).c_str(),
                     (std::string(folder) + "/" + tool).c_str());
    }
    execv(SelfPath().c_str(), argv);
    return 1;
  }
  testing::InitGoogleTest(&argc, argv);
  int status = RUN_ALL_TESTS();
  NSAutoreleasePool *pool = [NSAutoreleasePool new];
  [[NSFileManager defaultManager] removeFileAtPath:[NSString stringWithUTF8String:getenv(kMark)]
                                           handler:nil];
  [pool release];
  return status;
}

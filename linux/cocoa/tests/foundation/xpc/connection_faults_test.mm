// Connections whose other end fails: a process of its own, or a bare socket that says what it
// likes.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>

#include "xpc_test_client.h"
#include "xpc_test_frames.h"
#import "xpc_test_server.h"

using namespace xpc_test;
using platform::xpc::FrameKind;
using platform::xpc::kHeaderSize;
using platform::xpc::Tag;
using platform::xpc::Writer;

/// Larger blocks of memory are refused.
static std::atomic<size_t> sLargestBlock{SIZE_MAX};

// The library's allocations come here, too.
void *operator new(size_t size, const std::nothrow_t &) noexcept {
  return size > sLargestBlock ? nullptr : std::malloc(size);
}
void *operator new(size_t size) {
  void *block = operator new(size, std::nothrow);
  if (!block) {
    throw std::bad_alloc();
  }
  return block;
}
void operator delete(void *block) noexcept { std::free(block); }
void operator delete(void *block, size_t) noexcept { std::free(block); }

namespace {

const char kName[] = "com.example.faults";
NSString *const kService = @"com.example.faults";

class XPCFaults : public ::testing::Test {
 protected:
  void SetUp() override { pool_ = [[NSAutoreleasePool alloc] init]; }
  void TearDown() override { [pool_ release]; }

  /// Waits for what must not happen.
  static void expectNothing(Counter *counter, unsigned before) {
    EXPECT_FALSE(counter->wait(before + 1, std::chrono::milliseconds(150)));
  }

  ServiceDirectory directory_;
  NSAutoreleasePool *pool_;
};

/// A message without arguments, or with `arguments` of which there are `count`.
Bytes MessageFrame(const char *selector, uint64_t request, const char *signature, unsigned count,
                   const Bytes &arguments) {
  Writer writer;
  writer.begin(FrameKind::kMessage);
  writer.putNumber(request);
  writer.putText(selector);
  if (request) {
    writer.putText(signature);
  }
  writer.putNumber(count);
  writer.putBytes(arguments.data(), arguments.size());
  return Finished(&writer);
}

/// Frames that are none, for either end.
std::vector<std::pair<const char *, Bytes>> BadFrames() {
  Bytes good = ReplyFrame(1, {0x00});
  Bytes wrongMagic = good, wrongVersion = good, wrongKind = good, tooLong = good, tooShort = good;
  wrongMagic[4] = 'Q';
  wrongVersion[6] = 9;
  wrongKind[7] = 4;
  tooLong[3] = 0x7f;
  tooShort[0] -= 1;
  Bytes random(5000);
  uint32_t state = 12345;
  for (auto &byte : random) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return {{"random bytes", random},
          {"a text line", Bytes{'G', 'E', 'T', ' ', '/', '\r', '\n', '\r', '\n'}},
          {"wrong magic", wrongMagic},
          {"wrong version", wrongVersion},
          {"wrong kind", wrongKind},
          {"a length beyond the limit", tooLong},
          {"a length that is too short", Joined({tooShort, good})},
          {"an empty payload", Bytes{0, 0, 0, 0, 'P', 'X', 1, 2}},
          {"invalid UTF-8", ReplyFrame(1, {0x20, 2, 0xc3, 0x28})},
          {"an unknown tag", ReplyFrame(1, {0x7f})},
          {"a text longer than the frame", ReplyFrame(1, {0x20, 100, 'x'})}};
}

}  // namespace

TEST_F(XPCFaults, AServiceThatNeverAcceptsKeepsNobodyWaiting) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 0);
  ASSERT_TRUE(listener.isOpen());
  // More than its queue takes: the others connect once there is room.
  std::vector<std::unique_ptr<Client>> clients;
  Outcome outcome;
  auto start = Clock::now();
  for (int i = 0; i < 5; ++i) {
    clients.emplace_back(new Client(kService));
    [clients.back()->proxy(&outcome) echo:nil reply:outcome.onObject()];
  }
  EXPECT_LT(MillisecondsSince(start), 5000);
  expectNothing(&outcome.ended, 0);
  for (int i = 0; i < 5; ++i) {
    RawSocket accepted = listener.accept();
    ASSERT_TRUE(accepted.isOpen()) << i;
    EXPECT_FALSE(accepted.readFrame().empty()) << i;
    ASSERT_TRUE(accepted.write(ReplyFrame(1, {0x25})));
    ASSERT_TRUE(outcome.ended.wait(static_cast<unsigned>(i) + 1)) << i;
  }
  EXPECT_EQ(outcome.replies, 5u);
}

TEST_F(XPCFaults, InvalidatingWhileTheQueueIsFullEndsAll) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 0);
  Outcome outcome;
  for (int i = 0; i < 5; ++i) {
    Client client(kService);
    [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  }
  ASSERT_TRUE(outcome.ended.wait(5));
  EXPECT_EQ(outcome.errors, 5u);
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
}

TEST_F(XPCFaults, AListenerThatGoesWhileOthersWaitForItInvalidatesThem) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 0);
  std::vector<std::unique_ptr<Client>> clients;
  Outcome outcome;
  for (int i = 0; i < 5; ++i) {
    clients.emplace_back(new Client(kService));
    [clients.back()->proxy(&outcome) echo:nil reply:outcome.onObject()];
  }
  listener.close();
  ASSERT_TRUE(outcome.ended.wait(5));
  EXPECT_EQ(outcome.errors, 5u);
  unsigned ended = 0;
  for (auto &client : clients) {
    ended += client->interrupted.count() + client->invalidated.count();
  }
  EXPECT_GE(ended, 1u);
}

TEST_F(XPCFaults, APeerThatHangsAndIsKilledFailsEveryRequestOnce) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  Outcome outcome;
  for (int i = 0; i < 100; ++i) {
    [client.proxy(&outcome) hangWithReply:outcome.onFlag()];
  }
  EXPECT_TRUE([client.echo(@"x") isEqual:@"x"]);
  EXPECT_EQ(outcome.ended.count(), 0u);
  peer.signal(SIGKILL);
  ASSERT_TRUE(outcome.ended.wait(100));
  EXPECT_TRUE(client.interrupted.wait());
  EXPECT_EQ(outcome.errors, 100u);
  EXPECT_EQ(outcome.replies, 0u);
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
  EXPECT_EQ(client.invalidated.count(), 0u);
}

TEST_F(XPCFaults, AfterAnInterruptionTheNextMessageReachesASuccessor) {
  Client *client;
  Outcome outcome;
  {
    Peer peer;
    ASSERT_TRUE(peer.serve(kName));
    client = new Client(kService);
    EXPECT_TRUE([client->echo(@"x") isEqual:@"x"]);
  }
  EXPECT_TRUE(client->interrupted.wait());
  {
    Peer successor;
    ASSERT_TRUE(successor.serve(kName));
    EXPECT_TRUE([client->echo(@"y") isEqual:@"y"]);
    EXPECT_EQ([client->connection() processIdentifier], successor.process());
  }
  EXPECT_TRUE(client->interrupted.wait(2));
  [client->proxy(&outcome) echo:nil reply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
  EXPECT_TRUE(client->invalidated.wait());
  delete client;
}

TEST_F(XPCFaults, APeerThatDiesMidRequestInterrupts) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) dieWithReply:outcome.onFlag()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_TRUE(client.interrupted.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
  EXPECT_EQ(outcome.replies, 0u);
}

TEST_F(XPCFaults, AReplyGivenJustBeforeDeathArrives) {
  for (int i = 0; i < 10; ++i) {
    Peer peer;
    ASSERT_TRUE(peer.serve(kName));
    Client client(kService);
    Outcome outcome;
    [client.proxy(&outcome) answerAndDieWithReply:outcome.onFlag()];
    ASSERT_TRUE(outcome.ended.wait());
    EXPECT_TRUE(client.interrupted.wait());
    EXPECT_EQ(outcome.replies, 1u);
    EXPECT_EQ(outcome.errors, 0u);
  }
}

TEST_F(XPCFaults, APeerThatGoesBeforeReadingInterrupts) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 8);
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  listener.accept().close();
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_TRUE(client.interrupted.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
}

TEST_F(XPCFaults, ARequestOfAPeerThatWasStoppedIsAnsweredWhenItGoesOn) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  client.echo(nil);
  peer.signal(SIGSTOP);
  Outcome outcome;
  [client.proxy(&outcome) echo:@"x" reply:outcome.onObject()];
  expectNothing(&outcome.ended, 0);
  peer.signal(SIGCONT);
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.replies, 1u);
}

TEST_F(XPCFaults, AFullSocketNeverHoldsTheCallerUpAndLosesNothing) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  client.echo(nil);
  peer.signal(SIGSTOP);
  // Many times what a socket takes.
  constexpr unsigned kCount = 20000;
  NSDictionary *info = [NSDictionary dictionaryWithObject:[@"" stringByPaddingToLength:200
                                                                            withString:@"i"
                                                                       startingAtIndex:0]
                                                   forKey:@"filler"];
  rusage before, after;
  getrusage(RUSAGE_THREAD, &before);
  for (unsigned i = 0; i < kCount; ++i) {
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    NSString *name = [NSString stringWithFormat:@"%u", i];
    [client.proxy() reportEvent:name info:info];
    [pool release];
  }
  getrusage(RUSAGE_THREAD, &after);
  // Waiting gives the processor up of one's own accord; being pushed aside by others does not
  // count.
  long waits = after.ru_nvcsw - before.ru_nvcsw;
  EXPECT_LT(waits, 100) << "a lock may be taken at the moment, the peer's socket must not count";
  peer.signal(SIGCONT);

  Outcome stored;
  Outcome &outcome = stored;
  [client.proxy(&outcome) eventsWithReply:^(NSArray *names) {
    bool inOrder = [names count] == kCount;
    for (unsigned i = 0; inOrder && i < kCount; ++i) {
      inOrder = [[names objectAtIndex:i] intValue] == static_cast<int>(i);
    }
    outcome.reply(inOrder);
  }];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_TRUE(outcome.flag);
}

TEST_F(XPCFaults, BeyondTheLimitOfWaitingBytesMessagesFailAtOnce) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  client.echo(nil);
  peer.signal(SIGSTOP);
  NSData *large = [NSMutableData dataWithLength:8 << 20];
  // What the socket takes makes up for the frames' headers.
  constexpr unsigned kSent = 12, kFit = 8;
  Outcome outcome;
  for (unsigned i = 0; i < kSent; ++i) {
    [client.proxy(&outcome) echo:large reply:outcome.onObject()];
  }
  ASSERT_TRUE(outcome.ended.wait(kSent - kFit));
  EXPECT_EQ(outcome.errors, kSent - kFit);
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
  peer.signal(SIGCONT);
  ASSERT_TRUE(outcome.ended.wait(kSent));
  EXPECT_EQ(outcome.replies, kFit) << "what had been taken";
  EXPECT_TRUE([client.echo(@"x") isEqual:@"x"]);
}

TEST_F(XPCFaults, ASecondReplyIsIgnored) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) twiceWithReply:outcome.onFlag()];
  ASSERT_TRUE(outcome.ended.wait());
  client.echo(nil);
  EXPECT_EQ(outcome.replies, 1u);
  EXPECT_EQ(outcome.errors, 0u);
  EXPECT_TRUE(outcome.flag) << "the first one counts";
}

TEST_F(XPCFaults, ASecondReplyOnTheWireIsIgnored) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 8);
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  RawSocket peer = listener.accept();
  ASSERT_FALSE(peer.readFrame().empty());
  ASSERT_TRUE(
      peer.write(Joined({ReplyFrame(1, {0x25}), ReplyFrame(1, {0x25}), ReplyFrame(77, {0x25})})));
  ASSERT_TRUE(outcome.ended.wait());
  [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  ASSERT_FALSE(peer.readFrame().empty());
  ASSERT_TRUE(peer.write(ReplyFrame(2, {0x25})));
  ASSERT_TRUE(outcome.ended.wait(2));
  EXPECT_EQ(outcome.replies, 2u);
  EXPECT_EQ(client.interrupted.count(), 0u);
}

TEST_F(XPCFaults, AReplyBlockThatIsReleasedUncalledFailsItsRequestOnly) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  Outcome dropped, kept;
  [client.proxy(&kept) after:100 reply:kept.onFlag()];
  [client.proxy(&dropped) dropWithReply:dropped.onFlag()];
  ASSERT_TRUE(dropped.ended.wait());
  EXPECT_EQ(dropped.errors, 1u);
  EXPECT_EQ(dropped.code, NSXPCConnectionInterrupted);
  ASSERT_TRUE(kept.ended.wait());
  EXPECT_EQ(kept.replies, 1u);
  EXPECT_TRUE([client.echo(@"x") isEqual:@"x"]);
  EXPECT_EQ(client.interrupted.count(), 0u);
}

TEST_F(XPCFaults, AReplyBlockThatWasCalledIsReleasedWithoutAWord) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 8);
  NSXPCConnection *connection = [[[NSXPCConnection alloc] initWithMachServiceName:kService
                                                                          options:0] autorelease];
  connection.exportedInterface = [NSXPCInterface interfaceWithProtocol:@protocol(XPCTestService)];
  connection.exportedObject = [[[XPCTestServer alloc] init] autorelease];
  Client client(connection);
  RawSocket peer = listener.accept();
  ASSERT_TRUE(peer.write(Joined({MessageFrame("echo:reply:", 1, "v@?@", 2, {0x25, 0x01}),
                                 MessageFrame("dropWithReply:", 2, "v@?C", 1, {0x01}),
                                 MessageFrame("echo:reply:", 3, "v@?@", 2, {0x25, 0x01})})));
  EXPECT_EQ(peer.readFrame(), ReplyFrame(1, {0x25}));
  EXPECT_EQ(peer.readFrame(), Bytes({2, 0, 0, 0, 'P', 'X', 1, 3, 2, 0}));
  EXPECT_EQ(peer.readFrame(), ReplyFrame(3, {0x25}));
}

// Clang's code for BOOL is B on arm64 and c on x86_64, this compiler's is C.
TEST_F(XPCFaults, AReplyBlockOfAnotherCompilerTakesTheSameReply) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  RawSocket client = RawSocket::connect(directory_.socket(kName));
  Bytes reply;
  for (const char *types : {"v@?C", "v@?B", "v@?c"}) {
    ASSERT_TRUE(client.write(MessageFrame("after:reply:", 1, types, 2, {0x11, 0, 0x01})));
    const Bytes read = client.readFrame();
    ASSERT_FALSE(read.empty()) << types;
    EXPECT_EQ(read, reply.empty() ? read : reply) << types;
    reply = read;
  }
}

TEST_F(XPCFaults, ALateReplyToAnInvalidatedConnectionIsLost) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Outcome outcome;
  {
    Client client(kService);
    [client.proxy(&outcome) after:1000 reply:outcome.onFlag()];
    client.echo(nil);
  }
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
  Client other(kService);
  Outcome later;
  [other.proxy(&later) after:1000 reply:later.onFlag()];
  ASSERT_TRUE(later.ended.wait());
  EXPECT_EQ(outcome.ended.count(), 1u);
}

TEST_F(XPCFaults, AReplyThatCannotBeSentEndsTheConnection) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) strangeWithReply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
  EXPECT_TRUE([client.echo(@"x") isEqual:@"x"]) << "the process went on";
}

TEST_F(XPCFaults, AnUnknownSelectorEndsThatConnectionOnly) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService), other(kService);
  other.echo(nil);
  Outcome outcome;
  [client.proxy(&outcome) unheardOfWithReply:outcome.onFlag()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
  EXPECT_TRUE([other.echo(@"x") isEqual:@"x"]);
  EXPECT_EQ(other.interrupted.count(), 0u);
}

TEST_F(XPCFaults, AnExceptionEndsThatConnectionOnly) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService), other(kService);
  other.echo(nil);
  Outcome outcome;
  [client.proxy(&outcome) raiseWithReply:outcome.onFlag()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
  EXPECT_TRUE([other.echo(@"x") isEqual:@"x"]);
  EXPECT_EQ(other.interrupted.count(), 0u);
}

TEST_F(XPCFaults, AReplyBlockThatRaisesHarmsNothing) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) echo:nil
                         reply:^(id) {
                           [NSException raise:@"TestException" format:@"on purpose"];
                         }];
  EXPECT_TRUE([client.echo(@"x") isEqual:@"x"]);
  EXPECT_EQ(outcome.errors, 0u);
}

TEST_F(XPCFaults, BadFramesFromTheServiceInterruptTheClient) {
  for (const auto &[what, bytes] : BadFrames()) {
    RawSocket listener = RawSocket::listen(directory_.socket(kName), 8);
    {
      Client client(kService);
      Outcome outcome;
      [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
      RawSocket peer = listener.accept();
      ASSERT_FALSE(peer.readFrame().empty()) << what;
      ASSERT_TRUE(peer.write(bytes)) << what;
      EXPECT_TRUE(outcome.ended.wait()) << what;
      EXPECT_TRUE(client.interrupted.wait()) << what;
      EXPECT_TRUE(peer.waitForEnd()) << what;
      EXPECT_EQ(outcome.errors, 1u) << what;
      EXPECT_EQ(outcome.replies, 0u) << what;
    }
    listener.close();
    unlink(directory_.socket(kName).c_str());
  }
}

TEST_F(XPCFaults, ACutOffFrameFromTheServiceInterruptsTheClient) {
  Bytes whole = ReplyFrame(1, {0x20, 3, 'a', 'b', 'c'});
  for (size_t length = 1; length < whole.size(); ++length) {
    RawSocket listener = RawSocket::listen(directory_.socket(kName), 8);
    {
      Client client(kService);
      Outcome outcome;
      [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
      RawSocket peer = listener.accept();
      ASSERT_FALSE(peer.readFrame().empty());
      ASSERT_TRUE(peer.write(whole.data(), length));
      peer.close();
      EXPECT_TRUE(outcome.ended.wait()) << length;
      EXPECT_TRUE(client.interrupted.wait()) << length;
      EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted) << length;
    }
    listener.close();
    unlink(directory_.socket(kName).c_str());
  }
}

TEST_F(XPCFaults, AFrameThatThereIsNoMemoryForInterruptsTheClient) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 8);
  Bytes many = {0x22, 0x80, 0x80, 0x04};  // An array of 2^16 null objects, each an item.
  many.resize(many.size() + (1 << 16), 0x25);
  Bytes text = {0x20, 0x80, 0x80, 0x40};  // A text of 2^20 letters.
  text.resize(text.size() + (1 << 20), 'x');
  for (const Bytes &reply : {ReplyFrame(1, many), ReplyFrame(1, text)}) {
    Client client(kService);
    Outcome outcome;
    [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
    RawSocket peer = listener.accept();
    ASSERT_FALSE(peer.readFrame().empty());
    sLargestBlock = 1 << 17;
    ASSERT_TRUE(peer.write(reply));
    EXPECT_TRUE(outcome.ended.wait());
    sLargestBlock = SIZE_MAX;
    EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
    EXPECT_TRUE(client.interrupted.wait());
    [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
    peer = listener.accept();
    ASSERT_FALSE(peer.readFrame().empty());
    ASSERT_TRUE(peer.write(ReplyFrame(2, {0x25})));
    EXPECT_TRUE(outcome.ended.wait(2));
    EXPECT_EQ(outcome.replies, 1u);
  }
}

TEST_F(XPCFaults, AFrameInSmallPiecesIsPutTogether) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 8);
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) echo:nil reply:outcome.onObject()];
  RawSocket peer = listener.accept();
  ASSERT_FALSE(peer.readFrame().empty());
  for (uint8_t byte : ReplyFrame(1, {0x20, 3, 'a', 'b', 'c'})) {
    ASSERT_TRUE(peer.write(&byte, 1));
    std::this_thread::yield();
  }
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.replies, 1u);
}

TEST_F(XPCFaults, FramesBeforeABadOneStillCount) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 8);
  Client client(kService);
  Outcome first, second;
  [client.proxy(&first) echo:nil reply:first.onObject()];
  [client.proxy(&second) echo:nil reply:second.onObject()];
  RawSocket peer = listener.accept();
  ASSERT_FALSE(peer.readFrame().empty());
  ASSERT_TRUE(peer.write(Joined({ReplyFrame(1, {0x25}), Bytes(20, 0xff)})));
  ASSERT_TRUE(first.ended.wait());
  ASSERT_TRUE(second.ended.wait());
  EXPECT_EQ(first.replies, 1u);
  EXPECT_EQ(second.errors, 1u);
}

TEST_F(XPCFaults, AReplyOfTheWrongKindIsAnInvalidReply) {
  RawSocket listener = RawSocket::listen(directory_.socket(kName), 8);
  struct Case {
    const char *what;
    Bytes argument;
  };
  for (const Case &one :
       {Case{"an object for a scalar", {0x20, 1, 'x'}}, Case{"nil for a scalar", {0x00}},
        Case{"too large a number", {0x11, 0xff, 0x7f}},
        Case{"a floating number for BOOL", {0x12, 0, 0, 0, 0, 0, 0, 0, 0}},
        Case{"a block", {0x01}}}) {
    Client client(kService);
    Outcome outcome;
    [client.proxy(&outcome) hangWithReply:outcome.onFlag()];
    RawSocket peer = listener.accept();
    ASSERT_FALSE(peer.readFrame().empty()) << one.what;
    ASSERT_TRUE(peer.write(ReplyFrame(1, one.argument)));
    EXPECT_TRUE(outcome.ended.wait()) << one.what;
    EXPECT_EQ(outcome.code, NSXPCConnectionReplyInvalid) << one.what;
    EXPECT_EQ(outcome.replies, 0u) << one.what;
    // Only the request fails.
    [client.proxy(&outcome) hangWithReply:outcome.onFlag()];
    ASSERT_FALSE(peer.readFrame().empty()) << one.what;
    ASSERT_TRUE(peer.write(ReplyFrame(2, {0x11, 1})));
    EXPECT_TRUE(outcome.ended.wait(2)) << one.what;
    EXPECT_EQ(outcome.replies, 1u) << one.what;
  }
}

TEST_F(XPCFaults, BadFramesFromAClientEndItsConnectionOnly) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client good(kService);
  good.echo(nil);
  auto bad = BadFrames();
  bad.emplace_back("a selector of NSObject", MessageFrame("release", 0, "", 0, {}));
  bad.emplace_back("another of NSObject", MessageFrame("dealloc", 0, "", 0, {}));
  bad.emplace_back("an unknown selector", MessageFrame("nothing:", 0, "", 1, {0x00}));
  bad.emplace_back("too few arguments", MessageFrame("reportEvent:info:", 0, "", 1, {0x00}));
  bad.emplace_back("too many arguments",
                   MessageFrame("reportEvent:info:", 0, "", 3, {0x00, 0x00, 0x00}));
  bad.emplace_back("a scalar for an object",
                   MessageFrame("reportEvent:info:", 0, "", 2, {0x11, 1, 0x00}));
  bad.emplace_back("a block for an object",
                   MessageFrame("reportEvent:info:", 0, "", 2, {0x01, 0x00}));
  bad.emplace_back("a reply nobody has room for",
                   MessageFrame("reportEvent:info:", 1, "v@?", 2, {0x00, 0x00}));
  bad.emplace_back("no reply block", MessageFrame("echo:reply:", 0, "", 2, {0x00, 0x01}));
  bad.emplace_back("nil for the reply block",
                   MessageFrame("echo:reply:", 1, "v@?@", 2, {0x00, 0x00}));
  bad.emplace_back("a reply block that returns something",
                   MessageFrame("echo:reply:", 1, "i@?@", 2, {0x00, 0x01}));
  bad.emplace_back("a reply block with a structure",
                   MessageFrame("echo:reply:", 1, "v@?{a=ii}", 2, {0x00, 0x01}));
  bad.emplace_back("a reply block that takes an object where the method gives a number",
                   MessageFrame("twiceWithReply:", 1, "v@?@", 1, {0x01}));
  bad.emplace_back("a reply block that takes more than the method gives",
                   MessageFrame("twiceWithReply:", 1, "v@?C@", 1, {0x01}));
  for (const auto &[what, bytes] : bad) {
    RawSocket client = RawSocket::connect(directory_.socket(kName));
    ASSERT_TRUE(client.isOpen()) << what;
    client.write(bytes);
    EXPECT_TRUE(client.waitForEnd()) << what;
  }
  for (const auto &[what, bytes] : bad) {
    RawSocket client = RawSocket::connect(directory_.socket(kName));
    client.write(bytes.data(), bytes.size() - 1);
  }
  EXPECT_TRUE([good.echo(@"x") isEqual:@"x"]);
  EXPECT_EQ(good.interrupted.count(), 0u);
  EXPECT_EQ([good.connection() processIdentifier], peer.process());
}

TEST_F(XPCFaults, AClientThatDiesWithRequestsOutstandingHarmsNothing) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  for (int i = 0; i < 20; ++i) {
    RawSocket client = RawSocket::connect(directory_.socket(kName));
    Bytes request = MessageFrame("after:reply:", 1, "v@?C", 2, {0x11, 20, 0x01});
    for (int k = 0; k < 20; ++k) {
      ASSERT_TRUE(client.write(request));
    }
  }
  Client good(kService);
  Outcome outcome;
  [good.proxy(&outcome) after:100 reply:outcome.onFlag()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.replies, 1u);
}

TEST_F(XPCFaults, AClientThatReadsNothingDoesNotHoldUpOthers) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  RawSocket lazy = RawSocket::connect(directory_.socket(kName));
  Bytes request = MessageFrame("textOfLength:reply:", 1, "v@?@", 2, {0x11, 0xc0, 0x84, 0x3d, 0x01});
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(lazy.write(request));
  }
  Client good(kService);
  EXPECT_TRUE([good.echo(@"x") isEqual:@"x"]);
  Bytes reply = lazy.readFrame();
  EXPECT_GT(reply.size(), 1000000u);
}

TEST_F(XPCFaults, AReplyOf64MiBArrivesAndALargerOneEndsTheConnection) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  Outcome stored;
  Outcome &outcome = stored;
  NSUInteger most = NSUInteger{64} << 20;
  [client.proxy(&outcome) textOfLength:most
                                 reply:^(NSString *text) {
                                   outcome.reply([text length] == most);
                                 }];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.errors, 0u);
  EXPECT_TRUE(outcome.flag);
  [client.proxy(&outcome) textOfLength:most + 5000 reply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait(2));
  EXPECT_EQ(outcome.errors, 1u);
  EXPECT_EQ(outcome.code, NSXPCConnectionInterrupted);
  EXPECT_TRUE([client.echo(@"x") isEqual:@"x"]);
}

TEST_F(XPCFaults, AMessageThatIsTooLargeFailsAndHarmsNothing) {
  Peer peer;
  ASSERT_TRUE(peer.serve(kName));
  Client client(kService);
  Outcome outcome;
  [client.proxy(&outcome) echo:[NSMutableData dataWithLength:(64 << 20) + 8192]
                         reply:outcome.onObject()];
  ASSERT_TRUE(outcome.ended.wait());
  EXPECT_EQ(outcome.errors, 1u);
  EXPECT_TRUE([client.echo(@"x") isEqual:@"x"]);
}

/// Has a process send events and end in the way of `mode`, with `status`; they all arrive in order.
static void ExpectEventsOfAProcessThatEnds(const char *mode, std::vector<unsigned> counts,
                                           int status) {
  XPCTestServer *server = [[[XPCTestServer alloc] init] autorelease];
  NSXPCListener *listener = [[[NSXPCListener alloc] initWithMachServiceName:kService] autorelease];
  listener.delegate = server;
  [listener resume];
  for (unsigned count : counts) {
    NSUInteger before = [[server events] count];
    Peer client;
    ASSERT_TRUE(client.start({mode, kName, std::to_string(count)}));
    EXPECT_EQ(client.waitForExit(), status);
    auto end = Clock::now() + kPatience;
    while ([[server events] count] < before + count && Clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    NSArray *events = [server events];
    ASSERT_EQ([events count], before + count);
    for (unsigned i = 0; i < count; ++i) {
      ASSERT_EQ([[events objectAtIndex:before + i] intValue], static_cast<int>(i));
    }
  }
  [listener invalidate];
}

TEST_F(XPCFaults, EventsJustBeforeANormalExitArrive) {
  ExpectEventsOfAProcessThatEnds("report", {1, 10, 5000}, 0);
}

TEST_F(XPCFaults, EventsJustBeforeAKillArrive) {
  // No more of them than a socket takes at once.
  ExpectEventsOfAProcessThatEnds("killed", {1, 5, 5, 5, 5, 5, 5, 5, 5, 5}, -1);
}

TEST_F(XPCFaults, AStoppedServiceHoldsAnExitUpForAMomentAtMost) {
  Peer service;
  ASSERT_TRUE(service.serve(kName));
  const auto report = [] {
    const auto start = Clock::now();
    Peer client;
    EXPECT_TRUE(client.start({"report", kName, "20000"}));
    EXPECT_EQ(client.waitForExit(), 0);
    return MillisecondsSince(start);
  };
  const double baseline = report();
  service.signal(SIGSTOP);
  const double spent = report();
  std::printf("20000 events to a service that reads: %.0f ms, stopped: %.0f ms\n", baseline, spent);
  EXPECT_LT(spent, baseline + 5000);
}

TEST_F(XPCFaults, TwoProcessesCannotServeOneName) {
  Peer first, second;
  ASSERT_TRUE(first.serve(kName));
  ASSERT_TRUE(second.serve(kName));
  Client client(kService);
  client.echo(nil);
  EXPECT_EQ([client.connection() processIdentifier], first.process());
  second.signal(SIGKILL);
  second.waitForExit();
  EXPECT_TRUE([Client(kService).echo(@"x") isEqual:@"x"]);
}

TEST_F(XPCFaults, ADeadProcessLeavesTheNameFree) {
  {
    Peer first;
    ASSERT_TRUE(first.serve(kName));
  }
  EXPECT_EQ(access(directory_.socket(kName).c_str(), F_OK), 0);
  Peer second;
  ASSERT_TRUE(second.serve(kName));
  Client client(kService);
  EXPECT_TRUE([client.echo(@"x") isEqual:@"x"]);
}

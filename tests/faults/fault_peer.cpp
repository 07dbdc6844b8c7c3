// Serves the agent's name and breaks the rules of the connection as it is told:
//
//   fault_peer FAULT [SELECTOR]
//
// SELECTOR is the request that meets the fault; without it, all meet it but the first check of a
// connection. The others are answered as an agent would that wants nobody to be asked. Says what
// happens as pellmar-dev-agent does, one JSON object a line. The faults are listed in `sFaults`.

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "service_directory.h"
#include "wire.h"

using platform::xpc::Descriptor;
using platform::xpc::Frame;
using platform::xpc::FrameKind;
using platform::xpc::kHeaderSize;
using platform::xpc::ServiceSocket;
using platform::xpc::Tag;
using platform::xpc::Writer;

namespace {

using Bytes = std::vector<uint8_t>;

const char sService[] = "com.pellmar.ProvisioningService";
const char sCheck[] = "checkConnectionWithCallback:";
const char sFetch[] = "fetchAskingPermissionStatus:";
const char sUpdate[] = "updateAllowedCustomerEmail:callback:";
const char sNotes[] = "showReleaseNotesForAppWithCallback:";
const char sRecoveryURLs[] = "urls to open by recovery option index";

const char *const sFaults[] = {
    // of the process
    "never-accepts", "queue-full", "goes-at-once", "hangs", "dies", "replies-and-dies",
    // of a reply's time and number
    "late", "slow", "twice", "unasked-first", "hangs-up", "not-ready",
    // of a reply's content
    "nil", "text-and-error", "wrong-class", "wrong-elements", "wrong-scalar", "too-few", "too-many",
    "too-deep", "8-MiB", "64-MiB", "asks-with-8-MiB", "invalid-utf8",
    // of the frame
    "truncated", "length-too-short", "length-too-long", "length-beyond-limit", "random-bytes",
    "unknown-selector"};

/// What a reply's value is, as far as the faults need to know.
enum class Part { kFlag, kText, kError };

std::vector<Part> PartsOf(const std::string &selector) {
  if (selector == sCheck || selector == sUpdate) {
    return {Part::kFlag};
  }
  if (selector == sFetch) {
    return {Part::kFlag, Part::kText};
  }
  if (selector == sNotes) {
    return {Part::kError};
  }
  return {Part::kText, Part::kError};
}

void Say(const std::string &line) {
  static std::mutex mutex;
  std::lock_guard<std::mutex> lock(mutex);
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

void PutString(Writer *writer, const std::string &text) {
  writer->putTag(Tag::kString);
  writer->putText(text);
}

/// An error whose user info holds nothing of the classes that its keys stand for.
void PutStrangeError(Writer *writer) {
  writer->putTag(Tag::kError);
  PutString(writer, "com.example");
  writer->putTag(Tag::kSigned);
  writer->putSigned(7);
  writer->putTag(Tag::kDictionary);
  writer->putNumber(1);
  PutString(writer, sRecoveryURLs);
  writer->putTag(Tag::kArray);
  writer->putNumber(3);
  writer->putTag(Tag::kSignedNumber);
  writer->putSigned(42);
  writer->putTag(Tag::kNull);
  writer->putTag(Tag::kData);
  writer->putText("no address");
}

void PutPart(Writer *writer, Part part, const std::string &fault) {
  if (fault == "wrong-class") {
    writer->putTag(Tag::kArray);
    writer->putNumber(1);
    PutString(writer, "of a wrong class");
  } else if (fault == "wrong-scalar") {
    writer->putTag(Tag::kUnsigned);
    writer->putNumber(1u << 20);
  } else if (fault == "too-deep") {
    for (int i = 0; i < 100; ++i) {
      writer->putTag(Tag::kArray);
      writer->putNumber(1);
    }
    writer->putTag(Tag::kNull);
  } else if (part == Part::kError && (fault == "wrong-elements" || fault == "text-and-error")) {
    PutStrangeError(writer);
  } else if (part == Part::kText && fault == "64-MiB") {
    PutString(writer, std::string(size_t{64} << 20, 'a'));
  } else if (part == Part::kText && (fault == "8-MiB" || fault == "asks-with-8-MiB")) {
    PutString(writer, std::string(size_t{8} << 20, 'a'));
  } else if (part == Part::kText && fault == "invalid-utf8") {
    PutString(writer, "\xc3\x28\xff");
  } else if (part == Part::kText && fault != "nil" && fault != "wrong-elements") {
    PutString(writer, "customer@example.com");
  } else {
    writer->putTag(Tag::kNil);
  }
}

/// The reply to a request, with the content that `fault` gives it.
Bytes Reply(uint64_t request, const std::string &selector, const std::string &fault) {
  const std::vector<Part> parts = PartsOf(selector);
  const bool isFew = fault == "too-few", isMany = fault == "too-many";
  Writer writer;
  writer.begin(FrameKind::kReply);
  writer.putNumber(request);
  writer.putNumber(parts.size() - isFew + isMany);
  for (size_t i = isFew; i < parts.size(); ++i) {
    if (parts[i] == Part::kFlag) {
      const unsigned flag = selector == sFetch ? fault == "asks-with-8-MiB" : fault != "not-ready";
      writer.putTag(Tag::kUnsigned);
      writer.putNumber(fault == "wrong-scalar" ? 1u << 20 : flag);
    } else {
      PutPart(&writer, parts[i], fault);
    }
  }
  if (isMany) {
    writer.putTag(Tag::kNil);
  }
  writer.finish();
  return Bytes(writer.data(), writer.data() + writer.size());
}

Bytes UnknownMessage() {
  Writer writer;
  writer.begin(FrameKind::kMessage);
  writer.putNumber(0);
  writer.putText("makeCoffee");
  writer.putNumber(0);
  writer.finish();
  return Bytes(writer.data(), writer.data() + writer.size());
}

Bytes RandomBytes() {
  Bytes bytes(5000);
  uint32_t state = 12345;
  for (uint8_t &byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return bytes;
}

void SetLength(Bytes *frame, size_t length) {
  for (int i = 0; i < 4; ++i) {
    (*frame)[i] = static_cast<uint8_t>(length >> (8 * i));
  }
}

bool ReadAll(int fd, void *bytes, size_t length) {
  auto *at = static_cast<uint8_t *>(bytes);
  while (length) {
    const ssize_t count = read(fd, at, length);
    if (count <= 0) {
      return false;
    }
    at += count;
    length -= static_cast<size_t>(count);
  }
  return true;
}

void WriteAll(int fd, const uint8_t *bytes, size_t length) {
  while (length) {
    const ssize_t count = send(fd, bytes, length, MSG_NOSIGNAL);
    if (count <= 0) {
      return;
    }
    bytes += count;
    length -= static_cast<size_t>(count);
  }
}

void WriteAll(int fd, const Bytes &bytes) { WriteAll(fd, bytes.data(), bytes.size()); }

/// Answers a request with the fault. Returns false when that was the connection's end.
bool Misbehave(int fd, const std::string &fault, uint64_t request, const std::string &selector) {
  if (fault == "hangs") {
    return true;
  }
  if (fault == "dies") {
    _exit(EXIT_FAILURE);
  }
  if (fault == "hangs-up") {
    return false;
  }
  if (fault == "late") {
    usleep(2'500'000);
  }
  Bytes reply = Reply(request, selector, fault);
  const size_t length = reply.size() - kHeaderSize;
  if (fault == "truncated") {
    WriteAll(fd, reply.data(), reply.size() - 3);
    return false;
  }
  if (fault == "slow") {
    for (const uint8_t &byte : reply) {
      WriteAll(fd, &byte, 1);
      usleep(2000);
    }
    return true;
  }
  if (fault == "length-too-short") {
    SetLength(&reply, length - 1);
  }
  if (fault == "length-too-long") {
    SetLength(&reply, length + 100);
  }
  if (fault == "length-beyond-limit") {
    SetLength(&reply, platform::xpc::kMaximumPayload + 1);
  }
  if (fault == "random-bytes") {
    reply = RandomBytes();
  }
  if (fault == "unknown-selector") {
    WriteAll(fd, UnknownMessage());
  }
  if (fault == "unasked-first") {
    WriteAll(fd, Reply(request + 1000, selector, ""));
  }
  WriteAll(fd, reply);
  if (fault == "twice") {
    WriteAll(fd, reply);
  }
  if (fault == "replies-and-dies") {
    _exit(EXIT_FAILURE);
  }
  return true;
}

void Serve(Descriptor connection, std::string fault, std::string faulty) {
  const int fd = connection.get();
  uint8_t header[kHeaderSize];
  Bytes payload;
  Frame frame;
  while (ReadAll(fd, header, sizeof header)) {
    uint32_t length = 0;
    FrameKind kind;
    if (platform::xpc::DecodeHeader(header, &length, &kind)) {
      return;
    }
    payload.resize(length);
    if (!ReadAll(fd, payload.data(), length)) {
      return;
    }
    if (platform::xpc::DecodePayload(kind, payload.data(), length, &frame)) {
      return;
    }
    const std::string selector(frame.selector);
    Say("{\"event\":\"request\",\"method\":\"" + selector + "\"}");
    if (frame.request == 0) {
      continue;
    }
    const bool isFaulty = faulty.empty() ? selector != sCheck : selector == faulty;
    if (!isFaulty) {
      WriteAll(fd, Reply(frame.request, selector, ""));
    } else if (!Misbehave(fd, fault, frame.request, selector)) {
      return;
    }
  }
}

/// Sets a backlog of one connection and fills it.
void FillBacklog(const ServiceSocket &service) {
  listen(service.listening.get(), 0);
  std::string problem;
  for (int i = 0; i < 2; ++i) {
    Descriptor client;
    platform::xpc::ConnectToService(sService, &client, &problem);
    client.take();  // It waits there for as long as this process lives.
  }
}

}  // namespace

int main(int argc, char *argv[]) {
  const std::string fault = argc > 1 ? argv[1] : "", faulty = argc > 2 ? argv[2] : "";
  bool isKnown = false;
  for (const char *name : sFaults) {
    isKnown = isKnown || fault == name;
  }
  if (!isKnown) {
    std::fprintf(stderr, "fault_peer: unknown fault: %s\n", fault.c_str());
    return 2;
  }
  ServiceSocket service;
  std::string problem;
  if (platform::xpc::OfferService(sService, &service, &problem) != 0) {
    std::fprintf(stderr, "fault_peer: %s\n", problem.c_str());
    return 1;
  }
  if (fault == "queue-full") {
    FillBacklog(service);
  }
  Say("{\"event\":\"listening\"}");
  if (fault == "never-accepts" || fault == "queue-full") {
    for (;;) {
      pause();
    }
  }
  for (;;) {
    pollfd waiting{service.listening.get(), POLLIN, 0};
    poll(&waiting, 1, -1);
    Descriptor connection(accept4(service.listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection) {
      continue;
    }
    if (fault == "goes-at-once") {
      _exit(EXIT_FAILURE);
    }
    std::thread(Serve, std::move(connection), fault, faulty).detach();
  }
}

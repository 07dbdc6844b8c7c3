// The parts of the loader that take bytes and know no runtime: what they read from a small bundle,
// which the tests make, and that they refuse what is malformed, whatever it is, instead of
// crashing.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "compact_unwind.h"
#include "dwarf.h"
#include "fixups.h"
#include "handlers.h"
#include "image.h"
#include "objc_reader.h"

using namespace macho;

namespace {

using Content = std::vector<uint8_t>;

/// The message with which `body` refuses, or "" if it does not.
template <typename Body>
std::string RefusalOf(Body body) {
  try {
    body();
  } catch (const Refusal &refusal) {
    return refusal.what();
  }
  return "";
}

template <typename T>
void Put(Content *content, size_t offset, T value) {
  if (content->size() < offset + sizeof value) {
    content->resize(offset + sizeof value);
  }
  std::memcpy(content->data() + offset, &value, sizeof value);
}

template <typename T>
void Append(Content *content, T value) {
  Put(content, content->size(), value);
}

void AppendName(Content *content, const std::string &name) {
  for (size_t i = 0; i < 16; ++i) {
    Append<char>(content, i < name.size() ? name[i] : 0);
  }
}

struct TestSection {
  std::string name;
  uint32_t type = 0;
  Content content;
};

/// A bundle of three pages: __TEXT with code and what `text` adds, __DATA, __LINKEDIT.
struct Bundle {
  std::vector<TestSection> text, data;
  Content rebases, binds, lazyBinds;
  uint32_t weakBindSize = 0;
  uint32_t processor = 0x01000007, type = 8;
  uint32_t extraCommand = 0;
  uint64_t dataAddress = kPage;
  uint32_t dataProtection = PROT_READ | PROT_WRITE;

  static constexpr uint64_t kFirstSection = 2048;

  Content make() const {
    Content commands;
    uint32_t count = 0;
    Content file(3 * kPage);
    const auto segment = [&](const char *name, uint64_t address, uint64_t offset,
                             uint32_t protection, const std::vector<TestSection> &sections,
                             uint64_t first) {
      ++count;
      Append<uint32_t>(&commands, 0x19);
      Append<uint32_t>(&commands, static_cast<uint32_t>(72 + 80 * sections.size()));
      AppendName(&commands, name);
      for (uint64_t value : {address, kPage, offset, kPage}) {
        Append(&commands, value);
      }
      for (uint32_t value : {protection, protection, static_cast<uint32_t>(sections.size()), 0u}) {
        Append(&commands, value);
      }
      for (const TestSection &section : sections) {
        AppendName(&commands, section.name);
        AppendName(&commands, name);
        Append(&commands, address + first);
        Append<uint64_t>(&commands, section.content.size());
        for (uint32_t value : {uint32_t(offset + first), 3u, 0u, 0u, section.type, 0u, 0u, 0u}) {
          Append(&commands, value);
        }
        std::copy(section.content.begin(), section.content.end(), file.begin() + offset + first);
        first += (section.content.size() + 7) / 8 * 8;
      }
    };
    segment("__TEXT", 0, 0, PROT_READ | PROT_EXEC, text, kFirstSection);
    segment("__DATA", dataAddress, kPage, dataProtection, data, 0);
    segment("__LINKEDIT", 2 * kPage, 2 * kPage, PROT_READ, {}, 0);

    ++count;
    Append<uint32_t>(&commands, 0x80000022);
    Append<uint32_t>(&commands, 48);
    uint32_t at = 2 * kPage;
    const auto part = [&](const Content &content) {
      Append<uint32_t>(&commands, at);
      Append<uint32_t>(&commands, static_cast<uint32_t>(content.size()));
      std::copy(content.begin(), content.end(), file.begin() + at);
      at += static_cast<uint32_t>(content.size());
    };
    part(rebases);
    part(binds);
    Append<uint32_t>(&commands, 0);
    Append<uint32_t>(&commands, weakBindSize);
    part(lazyBinds);
    Append<uint64_t>(&commands, 0);

    for (const std::string path :
         {"/usr/lib/libSystem.B.dylib", "/Some.framework/Versions/A/Some"}) {
      ++count;
      Append<uint32_t>(&commands, 0xc);
      Append<uint32_t>(&commands, 24 + 40);
      Append<uint32_t>(&commands, 24);
      for (int i = 0; i < 3; ++i) {
        Append<uint32_t>(&commands, 0);
      }
      for (size_t i = 0; i < 40; ++i) {
        Append<char>(&commands, i < path.size() ? path[i] : 0);
      }
    }
    if (extraCommand) {
      ++count;
      Append(&commands, extraCommand);
      Append<uint32_t>(&commands, 8);
    }

    Content header;
    for (uint32_t value : {0xfeedfacfu, processor, 3u, type, count,
                           static_cast<uint32_t>(commands.size()), 0u, 0u}) {
      Append(&header, value);
    }
    std::copy(header.begin(), header.end(), file.begin());
    std::copy(commands.begin(), commands.end(), file.begin() + header.size());
    return file;
  }
};

MachoFile ReadContent(const Content &content) {
  return ReadMachoFile({content.data(), content.size(), "the file"});
}

/// An image of a file that has this content. The content has to stay.
class LoadedImage {
 public:
  explicit LoadedImage(const Content &content) : descriptor_(memfd_create("bundle", MFD_CLOEXEC)) {
    EXPECT_EQ(write(descriptor_, content.data(), content.size()), ssize_t(content.size()));
    // A refusal leaves the constructor.
    try {
      image_.emplace(ReadContent(content), descriptor_);
    } catch (...) {
      close(descriptor_);
      throw;
    }
  }
  ~LoadedImage() { close(descriptor_); }
  LoadedImage(const LoadedImage &) = delete;
  LoadedImage &operator=(const LoadedImage &) = delete;

  Image *operator->() { return &*image_; }
  const Image &operator*() const { return *image_; }

 private:
  const int descriptor_;
  std::optional<Image> image_;
};

uintptr_t NoImports(const Import &) { return 0; }

Content Words(std::initializer_list<uint64_t> words) {
  Content content;
  for (uint64_t word : words) {
    Append(&content, word);
  }
  return content;
}

// --- Numbers
// -----------------------------------------------------------------------------------------

Cursor Over(const Content &content) { return Cursor({content.data(), content.size(), "bytes"}); }

TEST(Cursor, ReadsNumbersOfAnyLength) {
  const Content content = {0x00, 0x7f, 0x80, 0x01, 0xff, 0xff, 0xff, 0xff, 0xff,
                           0xff, 0xff, 0xff, 0xff, 0x01, 0x7f, 0xc0, 0x00};
  Cursor cursor = Over(content);
  EXPECT_EQ(cursor.uleb(), 0u);
  EXPECT_EQ(cursor.uleb(), 127u);
  EXPECT_EQ(cursor.uleb(), 128u);
  EXPECT_EQ(cursor.uleb(), UINT64_MAX);
  EXPECT_EQ(cursor.sleb(), -1);
  EXPECT_EQ(cursor.sleb(), 64);
  EXPECT_TRUE(cursor.isAtEnd());
}

TEST(Cursor, RefusesWhatHasNoEnd) {
  const Content truncated = {0x80}, tooLong(11, 0x80), text = {'a', 'b'};
  EXPECT_NE(RefusalOf([&] { Over(truncated).uleb(); }), "");
  EXPECT_EQ(RefusalOf([&] { Over(tooLong).uleb(); }), "bytes: a number has more than 64 bits");
  EXPECT_EQ(RefusalOf([&] { Over(text).text(); }), "bytes: a text at 0x0 has no end");
  EXPECT_NE(RefusalOf([&] { Over(text).read<uint32_t>(); }), "");
}

// --- Load commands
// -----------------------------------------------------------------------------------

TEST(MachoFile, ReadsWhatTheLoadCommandsSay) {
  Bundle bundle;
  bundle.data = {{"__data", 0, Words({1, 2})}, {"__mod_init_func", 9, Words({3})}};
  const MachoFile file = ReadContent(bundle.make());
  EXPECT_EQ(file.extent, 3 * kPage);
  ASSERT_EQ(file.segments.size(), 3u);
  EXPECT_EQ(file.segments[1].name, "__DATA");
  EXPECT_EQ(file.segments[1].protection, PROT_READ | PROT_WRITE);
  ASSERT_EQ(file.sections.size(), 2u);
  EXPECT_EQ(file.sections[1].name, "__mod_init_func");
  EXPECT_EQ(file.sections[1].address, kPage + 16);
  EXPECT_TRUE(file.sections[1].hasInitializers);
  EXPECT_EQ(file.libraries, (std::vector<std::string>{"libSystem.B.dylib", "Some"}));
}

TEST(MachoFile, FindsItsSliceInAUniversalFile) {
  const Content thin = Bundle().make();
  Content file;
  for (uint32_t value : {0xcafebabeu, 2u,                            //
                         0x0100000cu, 0u, 0x4000u, 0x1000u, 14u,     // arm64
                         0x01000007u, 3u, 0x2000u, 0x3000u, 12u}) {  // x86_64
    Append(&file, __builtin_bswap32(value));
  }
  file.resize(0x2000);
  file.insert(file.end(), thin.begin(), thin.end());
  EXPECT_EQ(ReadContent(file).sliceOffset, 0x2000u);
  Put(&file, 8 + 20, __builtin_bswap32(0x01000008));
  EXPECT_EQ(RefusalOf([&] { ReadContent(file); }), "the universal file has no x86_64 slice");
}

TEST(MachoFile, RefusesWhatIsNotUnderstood) {
  const auto refusal = [](auto change) {
    Bundle bundle;
    change(&bundle);
    const Content content = bundle.make();
    return RefusalOf([&] { ReadContent(content); });
  };
  EXPECT_EQ(refusal([](Bundle *) {}), "");
  EXPECT_EQ(refusal([](Bundle *b) { b->processor = 0x0100000c; }), "the file is not for x86_64");
  EXPECT_EQ(refusal([](Bundle *b) { b->type = 6; }), "the file is of type 6 and no bundle");
  EXPECT_EQ(refusal([](Bundle *b) { b->extraCommand = 0x80000034; }),
            "chained fixups are not understood");
  EXPECT_EQ(refusal([](Bundle *b) { b->extraCommand = 0x99; }),
            "load command 0x99 is not understood");
  EXPECT_EQ(refusal([](Bundle *b) { b->weakBindSize = 1; }), "weak binds are not understood");
  EXPECT_EQ(refusal([](Bundle *b) { b->dataAddress = 0; }), "segment __DATA overlaps another");
  EXPECT_EQ(refusal([](Bundle *b) { b->dataAddress = kPage + 8; }),
            "segment __DATA does not begin with a page");
  EXPECT_EQ(refusal([](Bundle *b) { b->data = {{"__objc_nonsense", 0, {}}}; }),
            "section __DATA,__objc_nonsense is not understood");
  EXPECT_EQ(refusal([](Bundle *b) { b->data = {{"__thread_vars", 0x13, {}}}; }),
            "section __DATA,__thread_vars is not understood");
  EXPECT_EQ(refusal([](Bundle *b) { b->data = {{"__init_offsets", 0x16, {}}}; }),
            "section __DATA,__init_offsets is of type 0x16, which is not understood");
}

TEST(MachoFile, RefusesATruncatedFile) {
  Bundle bundle;
  bundle.data = {{"__data", 0, Words({1})}};
  const Content whole = bundle.make();
  for (size_t size : {size_t{0}, size_t{3}, size_t{31}, size_t{40}, kPage, whole.size() - 1}) {
    const Content part(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    EXPECT_NE(RefusalOf([&] { ReadContent(part); }), "") << size;
  }
}

// --- Images
// ------------------------------------------------------------------------------------------

TEST(Image, IsMappedFromTheFileAndReadWithinItself) {
  Bundle bundle;
  bundle.data = {{"__data", 0, Words({0x1122334455667788})}, {"__cstring", 2, {'a', 0, 'b', 0}}};
  const Content content = bundle.make();
  LoadedImage image(content);
  EXPECT_EQ(*image->at<uint64_t>(image->base() + kPage), 0x1122334455667788u);
  EXPECT_STREQ(image->text(image->base() + kPage + 8), "a");
  const Image::Array<uint64_t> words = image->arrayOf<uint64_t>("__data");
  EXPECT_EQ(words.count, 1u);
  EXPECT_EQ(image->arrayOf<uint64_t>("__missing").count, 0u);
  EXPECT_EQ(image->code(image->base()), image->base());
  bundle.text = {{"__cstring", 2, {'c', 0}}};
  const Content twice = bundle.make();
  LoadedImage other(twice);
  EXPECT_EQ(RefusalOf([&] { other->find("__cstring"); }), "there are two sections __cstring");

  EXPECT_NE(RefusalOf([&] { image->at<uint64_t>(image->base() + 3 * kPage); }), "");
  EXPECT_NE(RefusalOf([&] { image->at<uint64_t>(image->base() + 3 * kPage - 4); }), "");
  EXPECT_NE(RefusalOf([&] { image->at<uint64_t>(image->base() + kPage + 4); }), "");
  EXPECT_NE(RefusalOf([&] { image->at<uint64_t>(image->base() + kPage, UINT64_MAX / 8); }), "");
  EXPECT_NE(RefusalOf([&] { image->at<uint64_t>(0); }), "");
  EXPECT_NE(RefusalOf([&] { image->text(image->base() - 1); }), "");
  EXPECT_NE(RefusalOf([&] { image->code(image->base() + kPage); }), "");
}

// --- Fixups
// ------------------------------------------------------------------------------------------

class Fixups : public testing::Test {
 protected:
  /// What becomes of eight words, each of which has the number of its place.
  std::vector<uint64_t> apply() {
    bundle_.data = {{"__data", 0, Words({0, 8, 16, 24, 32, 40, 48, 56})}};
    const Content content = bundle_.make();
    LoadedImage image(content);
    ApplyFixups(*image, [this](const Import &import) {
      imports_.push_back(std::string(import.symbol) + " of " + std::string(import.library) +
                         (import.isWeak ? ", weak" : ""));
      return import.symbol == "_missing" ? 0 : 0x10000;
    });
    std::vector<uint64_t> words;
    for (uint64_t i = 0; i < 8; ++i) {
      const uint64_t word = *image->at<uint64_t>(image->base() + kPage + 8 * i);
      // Those that were rebased count from the image again, and say so.
      words.push_back(word >= image->base() ? word - image->base() + 1000 : word);
    }
    return words;
  }
  std::string refused() {
    return RefusalOf([this] { apply(); });
  }

  Bundle bundle_;
  std::vector<std::string> imports_;
};

TEST_F(Fixups, FollowEachRebaseOpcode) {
  // Of segment 1: word 0; 1 to go past; words 2 and 3; one that skips a word; two of each second.
  bundle_.rebases = {0x11, 0x21, 0x00, 0x51, 0x30, 0x08, 0x60, 0x01,
                     0x41, 0x70, 0x00, 0x80, 0x01, 0x08, 0x00, 0xff};
  EXPECT_EQ(apply(), (std::vector<uint64_t>{1000, 8, 1016, 24, 1032, 1040, 48, 56}));
}

TEST_F(Fixups, FollowEachBindOpcode) {
  bundle_.binds = {0x12, 0x40, '_',  'a',  0,    0x51, 0x71, 0x00, 0x90,  // Word 0.
                   0x80, 0x08, 0x60, 0x7f, 0xa0, 0x08,                    // Word 2, less one.
                   0x60, 0x00, 0x3e, 0x41, '_',  'm',  'i',  's',  's',  'i',  'n', 'g', 0,
                   0xb1,  // Word 4.
                   0x20, 0x01, 0x40, '_',  'b',  0,    0xc0, 0x01, 0x00, 0x00, 0xff};
  bundle_.lazyBinds = {0x71, 0x38, 0x11, 0x40, '_', 'c', 0, 0x90, 0x00, 0x00};
  EXPECT_EQ(apply(), (std::vector<uint64_t>{0x10000, 8, 0xffff, 24, 0, 40, 0x10000, 0x10000}));
  EXPECT_EQ(imports_,
            (std::vector<std::string>{"_a of Some", "_a of Some", "_missing of , weak",
                                      "_b of libSystem.B.dylib", "_c of libSystem.B.dylib"}));
}

TEST_F(Fixups, AreRefusedOutsideOfWhatCanBeWritten) {
  bundle_.rebases = {0x11, 0x20, 0x00, 0x51};
  EXPECT_EQ(refused(), "opcodes change segment __TEXT, which cannot be written");
  bundle_.rebases = {0x11, 0x23, 0x00, 0x51};
  EXPECT_EQ(refused(), "opcodes name segment 3");
  bundle_.rebases = {0x11, 0x51};
  EXPECT_EQ(refused(), "opcodes name no segment");
  bundle_.rebases = {0x11, 0x21, 0x80, 0x20, 0x51};
  EXPECT_EQ(refused(), "opcodes lead out of segment __DATA");
  bundle_.rebases = {0x11, 0x21, 0xfc, 0x1f, 0x51};
  EXPECT_NE(refused(), "");
  // A skip that leads back would go on for ever.
  bundle_.rebases = {0x11, 0x21, 0x00, 0x80, 0xff, 0xff, 0x7f, 0x78};
  EXPECT_EQ(refused(), "opcodes change 2097151 words of segment __DATA");
}

TEST_F(Fixups, AreRefusedWhereTheyAreNotUnderstood) {
  bundle_.rebases = {0x12};
  EXPECT_EQ(refused(), "rebases of type 2 are not understood");
  bundle_.rebases = {0x90};
  EXPECT_EQ(refused(), "rebase opcode 0x90 is not understood");
  bundle_.rebases = {0x21};
  EXPECT_NE(refused(), "");
  bundle_.rebases = {};
  bundle_.binds = {0xd1};
  EXPECT_EQ(refused(), "bind opcode 0xd1 is not understood");
  bundle_.binds = {0x13};
  EXPECT_EQ(refused(), "library 3 of 2 is not understood");
  bundle_.binds = {0x3d};
  EXPECT_EQ(refused(), "library -3 is not understood");
  bundle_.binds = {0x48, '_', 'a', 0};
  EXPECT_EQ(refused(), "import _a has flags 0x8, which are not understood");
  bundle_.binds = {0x71, 0x00, 0x90};
  EXPECT_EQ(refused(), "opcodes name no import");
  bundle_.binds = {0x11, 0x40, '_', 'm', 'i', 's', 's', 'i', 'n', 'g', 0, 0x71, 0x00, 0x90};
  EXPECT_EQ(refused(), "there is no _missing of libSystem.B.dylib");
  bundle_.binds = {0x40, '_', 'a'};
  EXPECT_NE(refused(), "");
}

TEST_F(Fixups, RefuseAPointerOutOfTheImage) {
  bundle_.rebases = {0x11, 0x21, 0x38, 0x51};
  EXPECT_EQ(apply()[7], 1056u);
  bundle_.data.clear();
  bundle_.data = {{"__data", 0, Words({3 * kPage})}};
  bundle_.rebases = {0x11, 0x21, 0x00, 0x51};
  const Content content = bundle_.make();
  EXPECT_EQ(RefusalOf([&] {
              LoadedImage image(content);
              ApplyFixups(*image, NoImports);
            }),
            "the pointer 0x3000 leads out of the image");
}

// --- Unwinding
// ---------------------------------------------------------------------------------------

/// Records of two functions, one in a page of either kind, and the end.
Content UnwindInfo(uint32_t first, uint32_t second) {
  Content content;
  // Version; common encodings, personalities and pages: where and how many.
  for (uint32_t word : {1u, 28u, 1u, 32u, 1u, 36u, 3u}) {
    Append(&content, word);
  }
  Append(&content, second);                  // At 28: a common encoding.
  Append<uint32_t>(&content, kPage);         // At 32: where the personality's address is.
  for (uint32_t word : {0x100u, 80u, 72u,    // At 36: a function, its page, its handlers.
                        0x200u, 100u, 80u,   //
                        0x300u, 0u, 80u}) {  //
    Append(&content, word);
  }
  for (uint32_t word : {0x100u, 0x900u}) {
    Append(&content, word);  // At 72: handlers.
  }
  Append<uint32_t>(&content, 2);  // At 80: a regular page.
  Append<uint16_t>(&content, 8), Append<uint16_t>(&content, 1);
  for (uint32_t word : {0x100u, first, 0u}) {
    Append(&content, word);
  }
  Append<uint32_t>(&content, 3);  // At 100: a compressed page.
  Append<uint16_t>(&content, 12), Append<uint16_t>(&content, 1);
  Append<uint32_t>(&content, 0);
  Append<uint32_t>(&content, 0);  // The common encoding, at the beginning of the page.
  return content;
}

std::vector<Function> FunctionsOf(uint32_t first, uint32_t second, uintptr_t *base) {
  Bundle bundle;
  bundle.text = {{"__unwind_info", 0, UnwindInfo(first, second)}};
  bundle.data = {{"__got", 0, Words({0x1234})}};
  const Content content = bundle.make();
  LoadedImage image(content);
  *base = image->base();
  return ReadCompactUnwind(*image);
}

TEST(CompactUnwind, ReadsBothKindsOfPages) {
  uintptr_t base;
  // %rbx and %r14 at -16 and -8 from %rbp; then a plain frame.
  const auto functions = FunctionsOf(0x51020000 | 1 | 4 << 3, 0x01000000, &base);
  ASSERT_EQ(functions.size(), 2u);
  EXPECT_EQ(functions[0].start, base + 0x100);
  EXPECT_EQ(functions[0].end, base + 0x200);
  EXPECT_EQ(functions[0].personality, 0x1234u);
  EXPECT_EQ(functions[0].handlers, base + 0x900);
  ASSERT_EQ(functions[0].saved.size(), 2u);
  EXPECT_EQ(functions[0].saved[0].number, 3);
  EXPECT_EQ(functions[0].saved[0].distance, 4u);
  EXPECT_EQ(functions[0].saved[1].number, 14);
  EXPECT_EQ(functions[0].saved[1].distance, 3u);
  EXPECT_EQ(functions[1].start, base + 0x200);
  EXPECT_EQ(functions[1].end, base + 0x300);
  EXPECT_EQ(functions[1].personality, 0u);
  EXPECT_TRUE(functions[1].saved.empty());
}

TEST(CompactUnwind, RefusesOtherFrames) {
  uintptr_t base;
  EXPECT_EQ(RefusalOf([&] { FunctionsOf(0x02010000, 0x01000000, &base); }),
            "the function at 0x100 has no frame of %rbp (compact unwinding 0x02010000)");
  EXPECT_EQ(RefusalOf([&] { FunctionsOf(0x01000000, 0x04000000, &base); }),
            "the function at 0x200 has no frame of %rbp (compact unwinding 0x04000000)");
  EXPECT_NE(RefusalOf([&] { FunctionsOf(0x01000006, 0x01000000, &base); }), "");
  EXPECT_NE(RefusalOf([&] { FunctionsOf(0x21000000, 0x01000000, &base); }), "");
  // Without a record a function is none that an exception could pass.
  EXPECT_EQ(FunctionsOf(0, 0x01000000, &base).size(), 1u);
}

TEST(FrameDescriptions, AreThoseOfTheUnwinder) {
  FrameDescriptions frames;
  frames.add({0x1000, 0x1080, {{3, 4}}, 0, 0}, 0);
  frames.add({0x1080, 0x1090, {}, 0x2000, 0x900}, 0x3000);
  const Content bytes = std::move(frames).finish();
  Content expected;
  const auto add = [&expected](std::initializer_list<uint8_t> more) {
    expected.insert(expected.end(), more);
  };
  add({20, 0, 0, 0, 0, 0, 0, 0, 1, 'z', 'R', 0, 1, 0x78, 16, 1, 0, 0x0c, 6, 16, 0x86, 2, 0x90, 1});
  add({28, 0, 0, 0, 28, 0, 0, 0});
  Append<uint64_t>(&expected, 0x1000), Append<uint64_t>(&expected, 0x80);
  add({0, 0x83, 4, 0, 0, 0, 0, 0});
  add({36, 0, 0, 0, 0, 0, 0, 0, 1, 'z', 'P', 'L', 'R', 0, 1, 0x78, 16, 11, 0});
  Append<uint64_t>(&expected, 0x2000);
  add({0, 0, 0x0c, 6, 16, 0x86, 2, 0x90, 1, 0, 0, 0, 0});
  add({36, 0, 0, 0, 44, 0, 0, 0});
  Append<uint64_t>(&expected, 0x1080), Append<uint64_t>(&expected, 0x10);
  add({8});
  Append<uint64_t>(&expected, 0x3000);
  add({0, 0, 0, 0, 0, 0, 0});
  add({0, 0, 0, 0});
  EXPECT_EQ(bytes, expected);
}

class HandlersOf : public testing::Test {
 protected:
  std::vector<CallSite> read(const Content &table) {
    Bundle bundle;
    bundle.text = {{"__gcc_except_tab", 0, table}};
    // What types are found through.
    bundle.data = {{"__got", 0, Words({0xabcd})}};
    const Content content = bundle.make();
    LoadedImage image(content);
    const uintptr_t base = image->base();
    auto sites =
        ReadHandlers(*image, {base + 0x100, base + 0x200, {}, 1, base + Bundle::kFirstSection});
    for (CallSite &site : sites) {
      site.start -= base;
      site.end -= base;
      if (site.landing) {
        site.landing -= base;
      }
    }
    return sites;
  }
  std::string refused(const Content &table) {
    return RefusalOf([&] { read(table); });
  }

  /// Two sites: one that cleans up, one that catches a type or else everything.
  static Content table() {
    Content table = {0xff, 0x9b, 29,   0x01, 8,  // Types end 29 bytes on; call sites of 8.
                     0x10, 0x08, 0x40, 0x00,     // 0x110 to 0x118 land at 0x140.
                     0x20, 0x10, 0x50, 0x03,     // 0x120 to 0x130, at 0x150: action 3.
                     0x01, 0x00, 0x02, 0x7d,     // Everything; the type, or else that.
                     0,    0,    0};             //
    // The second type, from the end, is in the word; the first is all.
    const auto place = static_cast<uint32_t>(table.size() + 4);
    Append<uint32_t>(&table, 0);
    Append<uint32_t>(&table, kPage - (Bundle::kFirstSection + place));
    Append<uint32_t>(&table, 0);
    // The distance to the end of the types counts from behind itself.
    table[2] = static_cast<uint8_t>(place + 8 - 3);
    return table;
  }
};

TEST_F(HandlersOf, AFunctionAreRead) {
  const auto sites = read(table());
  ASSERT_EQ(sites.size(), 2u);
  EXPECT_EQ(sites[0].start, 0x110u);
  EXPECT_EQ(sites[0].end, 0x118u);
  EXPECT_EQ(sites[0].landing, 0x140u);
  EXPECT_TRUE(sites[0].actions.empty());
  EXPECT_EQ(sites[1].landing, 0x150u);
  ASSERT_EQ(sites[1].actions.size(), 2u);
  EXPECT_EQ(sites[1].actions[0].selector, 2);
  EXPECT_EQ(sites[1].actions[0].type, 0xabcdu);
  EXPECT_EQ(sites[1].actions[1].selector, 1);
  EXPECT_EQ(sites[1].actions[1].type, 0u);
}

TEST_F(HandlersOf, AFunctionAreRefusedWhereTheyAreNotUnderstood) {
  const auto changed = [](size_t at, uint8_t value) {
    Content content = table();
    content[at] = value;
    return content;
  };
  EXPECT_EQ(refused(changed(0, 0x00)), "landing pads of other functions are not understood");
  EXPECT_EQ(refused(changed(1, 0x00)), "types of exceptions with encoding 0x00 are not understood");
  EXPECT_EQ(refused(changed(3, 0x0b)), "call sites with encoding 0x0b are not understood");
  EXPECT_EQ(refused(changed(6, 0xff)), "a call site is not in its function");
  EXPECT_EQ(refused(changed(15, 0x7f)), "exception specifications are not understood");
  EXPECT_EQ(refused(changed(16, 0x7f)), "the handlers of exceptions have no end");
  EXPECT_EQ(refused(changed(15, 0x3f)), "the type of an exception is not there");
  EXPECT_NE(refused({0xff}), "");
}

// --- Objective-C
// -------------------------------------------------------------------------------------

TEST(ObjectiveC, ConstantStringsBecomeUtf8) {
  Bundle bundle;
  const uint64_t texts = kPage + 64;
  bundle.data = {
      {"__cfstring", 0, Words({0, 0x7c8, texts, 3, 0, 0x7d0, texts + 4, 5})},
      {"__ustring", 0, {'a', 'b', 'c', 0, 'x', 0, 0xfc, 0, 0x16, 0x4e, 0x3c, 0xd8, 0x89, 0xdf}}};
  bundle.rebases = {0x11, 0x21, 0x10, 0x51, 0x30, 0x18, 0x51};
  const Content content = bundle.make();
  LoadedImage image(content);
  ApplyFixups(*image, NoImports);
  const ObjectiveC read = ReadObjectiveC(*image);
  ASSERT_EQ(read.strings.size(), 2u);
  EXPECT_STREQ(read.strings[0].text, "abc");
  EXPECT_EQ(read.strings[1].converted, "x\xc3\xbc\xe4\xb8\x96\xf0\x9f\x8e\x89");
  EXPECT_EQ(read.strings[1].length, 10u);
  EXPECT_EQ(read.strings[1].record, image->at<uint64_t>(image->base() + kPage + 32));
}

TEST(ObjectiveC, IsRefusedWhereItLeadsBackOrOut) {
  const auto refusal = [](const char *section, std::initializer_list<uint64_t> words,
                          Content rebases) {
    Bundle bundle;
    bundle.data = {{"__const", 0, Words(words)}, {section, 0, Words({kPage})}};
    rebases.insert(rebases.begin(), {0x11, 0x21, 0x00});
    // The section's own word.
    rebases.insert(rebases.end(), {0x21, static_cast<uint8_t>(0x80 | (8 * words.size() & 0x7f)),
                                   static_cast<uint8_t>(8 * words.size() >> 7), 0x51});
    bundle.rebases = std::move(rebases);
    const Content content = bundle.make();
    return RefusalOf([&] {
      LoadedImage image(content);
      ApplyFixups(*image, NoImports);
      ReadObjectiveC(*image);
    });
  };
  // A protocol's name is its third word's, and the list of those that it adopts has the protocol.
  EXPECT_EQ(refusal("__objc_protolist",
                    {0, kPage + 88, kPage + 96, 0, 0, 0, 0, 0, 72, 0, 0, 'P', 1, kPage},
                    {0x30, 8, 0x52, 0x30, 80, 0x51}),
            "a protocol adopts itself");
  // Class, its metaclass, their data, a name.
  EXPECT_EQ(refusal("__objc_classlist",
                    {kPage + 40,  kPage, 0,           0, kPage + 80, 0, 0,  0, 0, kPage + 152, 0,
                     0,           0,     kPage + 224, 0, 0,          0, 0,  0, 1, 0,           0,
                     kPage + 224, 0,     0,           0, 0,          0, 'C'},
                    {0x52, 0x30, 16, 0x51, 0x30, 32, 0x51, 0x30, 24, 0x51, 0x30, 64, 0x51}),
            "a class is its own superclass");
  EXPECT_NE(refusal("__objc_classlist", {0}, {}), "");
  EXPECT_NE(refusal("__objc_catlist", {8}, {}), "");
}

// --- Whatever is malformed
// ---------------------------------------------------------------------------

/// Reads everything that is read before anything runs.
void ReadAll(const Content &content) {
  LoadedImage image(content);
  ApplyFixups(*image, [](const Import &) -> uintptr_t { return 0x1000; });
  ReadObjectiveC(*image);
  FrameDescriptions frames;
  for (const Function &function : ReadCompactUnwind(*image)) {
    if (function.handlers) {
      ReadHandlers(*image, function);
    }
    frames.add(function, 0);
  }
}

/// Changes bytes of a real bundle wherever the loader reads them. A crash ends the test.
TEST(Malformed, BundlesAreRefused) {
  const char *path = std::getenv("PELLMAR_MACHO");
  if (!path) {
    GTEST_SKIP() << "PELLMAR_MACHO names no bundle (scripts/macos-cross --run builds one)";
  }
  std::ifstream stream(path, std::ios::binary);
  const Content whole{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  ASSERT_EQ(RefusalOf([&] { ReadAll(whole); }), "");

  // What is read: everything but code and pictures.
  std::vector<std::pair<size_t, size_t>> parts = {{0, 4096}};
  const MachoFile file = ReadContent(whole);
  for (const Section &section : file.sections) {
    for (const Segment &segment : file.segments) {
      const bool isRead = section.segment != "__TEXT" || section.name == "__unwind_info" ||
                          section.name == "__gcc_except_tab";
      const uint64_t offset = segment.offset + section.address - segment.address;
      if (segment.name == section.segment && isRead && offset + section.size <= whole.size()) {
        parts.emplace_back(offset, section.size);
      }
    }
  }
  for (const Segment &segment : file.segments) {
    if (segment.name == "__LINKEDIT") {
      parts.emplace_back(segment.offset, segment.fileSize);
    }
  }

  std::mt19937 random(1);
  int refused = 0;
  constexpr int kRounds = 6000;
  for (int round = 0; round < kRounds; ++round) {
    Content changed = whole;
    for (int left = 1 + static_cast<int>(random() % 3); left > 0; --left) {
      const auto &[offset, size] = parts[random() % parts.size()];
      static constexpr uint8_t kValues[] = {0x00, 0x01, 0x7f, 0x80, 0xff};
      const size_t at = offset + random() % size;
      changed[at] =
          random() % 2 ? kValues[random() % std::size(kValues)] : static_cast<uint8_t>(random());
    }
    if (RefusalOf([&] { ReadAll(changed); }) != "") {
      ++refused;
    }
  }
  EXPECT_GT(refused, kRounds / 10);
  EXPECT_LT(refused, kRounds);
  RecordProperty("refused", refused);
}

}  // namespace

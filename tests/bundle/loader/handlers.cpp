#include "handlers.h"

namespace macho {

namespace {

/// How a pointer is written (the DW_EH_PE_… of DWARF).
enum PointerEncoding : uint8_t {
  kAbsolute = 0x00,
  kUleb = 0x01,
  kUnsigned4 = 0x03,
  kSigned4 = 0x0b,
  kRelativeToItself = 0x10,
  kIndirect = 0x80,
  kOmitted = 0xff,
};

class Reader {
 public:
  Reader(const Image &image, const Function &function)
      : image_(image),
        function_(function),
        bytes_(image.rest(function.handlers, "the handlers of exceptions")) {}

  std::vector<CallSite> read() {
    Cursor cursor(bytes_);
    if (cursor.read<uint8_t>() != kOmitted) {
      Refuse("landing pads of other functions are not understood");
    }
    typeEncoding_ = cursor.read<uint8_t>();
    if (typeEncoding_ != kOmitted) {
      const uint64_t distance = cursor.uleb();
      typesEnd_ = cursor.offset() + distance;
    }
    const auto siteEncoding = cursor.read<uint8_t>();
    const uint64_t length = cursor.uleb();
    actions_ = cursor.offset() + length;

    std::vector<CallSite> sites;
    while (cursor.offset() < actions_) {
      const uint64_t start = readPlain(&cursor, siteEncoding);
      const uint64_t size = readPlain(&cursor, siteEncoding);
      const uint64_t landing = readPlain(&cursor, siteEncoding);
      const uint64_t action = cursor.uleb();
      const uint64_t functionSize = function_.end - function_.start;
      if (start > functionSize || size > functionSize - start || landing >= functionSize) {
        Refuse("a call site is not in its function");
      }
      sites.push_back({function_.start + start, function_.start + start + size,
                       landing ? function_.start + landing : 0,
                       action ? readActions(action - 1) : std::vector<Action>{}});
    }
    return sites;
  }

 private:
  static uint64_t readPlain(Cursor *cursor, uint8_t encoding) {
    if (encoding == kUleb) {
      return cursor->uleb();
    }
    if (encoding == kUnsigned4) {
      return cursor->read<uint32_t>();
    }
    Refuse("call sites with encoding 0x%02x are not understood", encoding);
  }

  std::vector<Action> readActions(uint64_t offset) {
    std::vector<Action> actions;
    uint64_t place = actions_ + offset;
    // Chains have a handful; more is one that leads back to itself.
    for (int left = 100; left > 0; --left) {
      Cursor cursor(bytes_, place);
      const int64_t selector = cursor.sleb();
      if (selector < 0) {
        Refuse("exception specifications are not understood");
      }
      actions.push_back({selector, selector ? typeAt(static_cast<uint64_t>(selector)) : 0});
      const uint64_t next = cursor.offset();
      const int64_t distance = cursor.sleb();
      if (distance == 0) {
        return actions;
      }
      place = next + static_cast<uint64_t>(distance);
    }
    Refuse("the handlers of exceptions have no end");
  }

  /// Types are counted from the end of their table.
  uintptr_t typeAt(uint64_t selector) {
    if (typeEncoding_ != (kIndirect | kRelativeToItself | kSigned4)) {
      Refuse("types of exceptions with encoding 0x%02x are not understood", typeEncoding_);
    }
    if (selector > typesEnd_ / sizeof(int32_t)) {
      Refuse("the type of an exception is not there");
    }
    const uint64_t place = typesEnd_ - selector * sizeof(int32_t);
    const auto distance = bytes_.read<int32_t>(place);
    if (distance == 0) {
      return 0;
    }
    return *image_.at<uintptr_t>(function_.handlers + place + static_cast<intptr_t>(distance));
  }

  const Image &image_;
  const Function &function_;
  const Bytes bytes_;
  uint8_t typeEncoding_ = kOmitted;
  uint64_t typesEnd_ = 0, actions_ = 0;
};

}  // namespace

std::vector<CallSite> ReadHandlers(const Image &image, const Function &function) {
  return Reader(image, function).read();
}

}  // namespace macho

#include "unwinding.h"

#include <unwind.h>

#include "compact_unwind.h"
#include "dwarf.h"
#include "exceptions.h"
#include "handlers.h"

extern "C" void __register_frame(void *frames);
extern "C" _Unwind_Reason_Code __gxx_personality_v0(int, _Unwind_Action, _Unwind_Exception_Class,
                                                    _Unwind_Exception *, _Unwind_Context *);

namespace macho {

namespace {

/// What the function's personality asks the unwinder for.
uintptr_t DataOf(const Function &function, const Image &image) {
  if (function.handlers == 0) {
    return 0;
  }
  auto sites = ReadHandlers(image, function);
  if (function.personality == reinterpret_cast<uintptr_t>(&macho_objc_personality)) {
    CheckTypes(sites);
    return reinterpret_cast<uintptr_t>(new std::vector<CallSite>(std::move(sites)));
  }
  if (function.personality == reinterpret_cast<uintptr_t>(&__gxx_personality_v0)) {
    // The C++ library reads the tables for itself.
    return function.handlers;
  }
  Refuse("a function has a personality that is not understood");
}

}  // namespace

std::vector<uint8_t> DescribeFrames(const Image &image) {
  FrameDescriptions frames;
  for (const Function &function : ReadCompactUnwind(image)) {
    frames.add(function, DataOf(function, image));
  }
  return std::move(frames).finish();
}

void RegisterFrames(std::vector<uint8_t> frames) {
  __register_frame((new std::vector<uint8_t>(std::move(frames)))->data());
}

}  // namespace macho

#include <objc/runtime.h>
#include <unwind.h>

#include <algorithm>
#include <exception>
#include <map>
#include <string>

#include "handlers.h"

extern "C" void *__cxa_begin_catch(void *exception) noexcept;
extern "C" void __cxa_end_catch();

namespace macho {

namespace {

using RuntimeClass = ::Class;

/// The class of an exception of gcc's runtime ("GNUCOBJC"); others are of C++ or of nobody we know.
constexpr _Unwind_Exception_Class kObjectiveC = 0x474e55434f424a43;

/// By the class's name; a class of that name may come later.
using ExceptionType = std::string;

std::map<std::string, ExceptionType> &Types() {
  static auto *types = new std::map<std::string, ExceptionType>;
  return *types;
}

/// gcc's runtime has the object just behind the unwinder's part.
id ObjectOf(_Unwind_Exception *exception) { return *reinterpret_cast<id *>(exception + 1); }

bool Catches(const Action &action, _Unwind_Exception *exception) {
  if (action.selector == 0) {
    return false;
  }
  if (action.type == 0) {
    return true;
  }
  if (exception->exception_class != kObjectiveC) {
    return false;
  }
  const auto *name = reinterpret_cast<const ExceptionType *>(action.type);
  const auto wanted = static_cast<RuntimeClass>(objc_lookUpClass(name->c_str()));
  const id object = ObjectOf(exception);
  RuntimeClass one = object ? object_getClass(object) : Nil;
  while (one && one != wanted) {
    one = class_getSuperclass(one);
  }
  return one;
}

_Unwind_Reason_Code Land(_Unwind_Context *context, _Unwind_Exception *exception, uintptr_t landing,
                         int64_t selector) {
  _Unwind_SetGR(context, __builtin_eh_return_data_regno(0), reinterpret_cast<uintptr_t>(exception));
  _Unwind_SetGR(context, __builtin_eh_return_data_regno(1), static_cast<uintptr_t>(selector));
  _Unwind_SetIP(context, landing);
  return _URC_INSTALL_CONTEXT;
}

/// The exceptions that are being handled, the innermost last; null for those of C++.
thread_local std::vector<_Unwind_Exception *> sCaught;

}  // namespace

uintptr_t ExceptionTypeOf(const char *className) {
  return reinterpret_cast<uintptr_t>(&Types().try_emplace(className, className).first->second);
}

void CheckTypes(const std::vector<CallSite> &sites) {
  for (const CallSite &site : sites) {
    for (const Action &action : site.actions) {
      const bool isKnown = std::any_of(Types().begin(), Types().end(), [&](const auto &known) {
        return reinterpret_cast<uintptr_t>(&known.second) == action.type;
      });
      if (action.type != 0 && !isKnown) {
        Refuse("an Objective-C function catches what is no imported class of Objective-C");
      }
    }
  }
}

}  // namespace macho

extern "C" _Unwind_Reason_Code macho_objc_personality(int version, _Unwind_Action phase,
                                                      _Unwind_Exception_Class,
                                                      _Unwind_Exception *exception,
                                                      _Unwind_Context *context) {
  using namespace macho;
  if (version != 1) {
    return _URC_FATAL_PHASE1_ERROR;
  }
  const auto *sites =
      reinterpret_cast<const std::vector<CallSite> *>(_Unwind_GetLanguageSpecificData(context));
  if (!sites) {
    return _URC_CONTINUE_UNWIND;
  }
  // A return address is behind its call.
  int isBeforeCall = 0;
  const uintptr_t ip = _Unwind_GetIPInfo(context, &isBeforeCall);
  const uintptr_t call = isBeforeCall ? ip : ip - 1;
  const auto site = std::find_if(sites->begin(), sites->end(), [call](const CallSite &candidate) {
    return call >= candidate.start && call < candidate.end;
  });
  // As in C++: a call that is not listed must not throw.
  if (site == sites->end()) {
    std::terminate();
  }
  if (site->landing == 0) {
    return _URC_CONTINUE_UNWIND;
  }

  const auto &actions = site->actions;
  const bool mayCatch = !(phase & _UA_FORCE_UNWIND);
  const auto caught =
      mayCatch
          ? std::find_if(actions.begin(), actions.end(),
                         [exception](const Action &action) { return Catches(action, exception); })
          : actions.end();
  if (phase & _UA_SEARCH_PHASE) {
    return caught != actions.end() ? _URC_HANDLER_FOUND : _URC_CONTINUE_UNWIND;
  }
  if (phase & _UA_HANDLER_FRAME) {
    return Land(context, exception, site->landing, caught->selector);
  }
  const bool cleansUp =
      actions.empty() || std::any_of(actions.begin(), actions.end(),
                                     [](auto &action) { return action.selector == 0; });
  return cleansUp ? Land(context, exception, site->landing, 0) : _URC_CONTINUE_UNWIND;
}

extern "C" id macho_objc_begin_catch(_Unwind_Exception *exception) {
  using namespace macho;
  if (exception->exception_class == kObjectiveC) {
    sCaught.push_back(exception);
    return ObjectOf(exception);
  }
  sCaught.push_back(nullptr);
  return static_cast<id>(__cxa_begin_catch(exception));
}

extern "C" void macho_objc_end_catch() {
  using namespace macho;
  _Unwind_Exception *caught = sCaught.back();
  sCaught.pop_back();
  if (caught) {
    _Unwind_DeleteException(caught);
  } else {
    __cxa_end_catch();
  }
}

//
// Calls inline functions of the engine's headers that read its objects. It is compiled as the
// binding is and run in the emulator, which finds settings of the engine that are missing from that
// command: the binding's own code need not depend on them.
//

#include <v8.h>

namespace {

using v8::FunctionCallbackInfo;
using v8::Value;

using Arguments = FunctionCallbackInfo<Value>;

enum Type : int32_t { kOther, kString, kUndefined, kNull };

Type TypeOf(v8::Local<Value> value) {
  if (value->IsString()) {
    return kString;
  }
  if (value->IsUndefined()) {
    return kUndefined;
  }
  return value->IsNull() ? kNull : kOther;
}

/// Returns a decimal digit, a `Type`, for each argument.
void Types(const Arguments &info) {
  int32_t digits = 0;
  for (int index = 0; index < info.Length(); ++index) {
    digits = digits * 10 + TypeOf(info[index]);
  }
  info.GetReturnValue().Set(digits);
}

void LastArgument(const Arguments &info) { info.GetReturnValue().Set(info[info.Length() - 1]); }

void Receiver(const Arguments &info) { info.GetReturnValue().Set(info.This()); }

void NegativeInteger(const Arguments &info) { info.GetReturnValue().Set(-3); }

/// One more than 31 bits hold.
void LargeInteger(const Arguments &info) { info.GetReturnValue().Set(int32_t{1} << 30); }

void IsLastUndefined(const Arguments &info) {
  info.GetReturnValue().Set(info[info.Length() - 1]->IsUndefined());
}

__attribute__((used, section("__DATA,__probes"))) const v8::FunctionCallback sProbes[] = {
    Types, LastArgument, Receiver, NegativeInteger, LargeInteger, IsLastUndefined,
};

}  // namespace

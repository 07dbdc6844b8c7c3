//
// A module that does nothing, linked to what the client is linked to: what loading costs at least.
//

#include <node_api.h>

namespace {

napi_value Init(napi_env, napi_value exports) { return exports; }

}  // namespace

NAPI_MODULE(bench_empty, Init)

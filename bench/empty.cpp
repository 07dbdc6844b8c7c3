#include <node_api.h>

static napi_value Init(napi_env, napi_value exports) { return exports; }

NAPI_MODULE(bench_empty, Init)

//
// The record with which the module announces itself to a runtime, as the runtime gets it.
//

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <node.h>

namespace {

int sRegistrations;
node::node_module sRecord;

}  // namespace

/// A fake of the runtime's, which the module finds in the program that loads it.
extern "C" __attribute__((visibility("default"))) void node_module_register(void *module) {
  ++sRegistrations;
  sRecord = *static_cast<node::node_module *>(module);
}

TEST(ModuleRecord, IsRegisteredOnceWhenTheFileIsLoadedAndIsOldStyle) {
  ASSERT_NE(dlopen(PELLMAR_MODULE, RTLD_LAZY | RTLD_LOCAL), nullptr) << dlerror();
  ASSERT_EQ(sRegistrations, 1);
  EXPECT_EQ(sRecord.nm_version, NODE_MODULE_VERSION);
  EXPECT_EQ(sRecord.nm_flags, 0u);
  EXPECT_EQ(sRecord.nm_dso_handle, nullptr);
  EXPECT_STREQ(sRecord.nm_filename, "../pellmar-lib-mapping");
  EXPECT_NE(sRecord.nm_register_func, nullptr);
  EXPECT_EQ(sRecord.nm_context_register_func, nullptr);
  EXPECT_STREQ(sRecord.nm_modname, "pellmar");
  EXPECT_EQ(sRecord.nm_priv, nullptr);
  EXPECT_EQ(sRecord.nm_link, nullptr);
}

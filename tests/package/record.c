// The module's record without the module behind it, from which the tests make bundles for macOS
// that no SDK is needed for. VERSION is the module version; MARK, if set, becomes a text in the
// file.

struct record {
  int version;
  unsigned flags;
  void *handle;
  const char *file;
  void *reg;
  void *regInContext;
  const char *name;
  void *privateData;
  void *link;
};

extern void node_module_register(void *record);

static struct record sRecord = {VERSION, 0, 0, "../record", 0, 0, "pellmar", 0, 0};

#ifdef MARK
__attribute__((used)) static const char sMark[] = MARK;
#endif

__attribute__((constructor)) static void Register(void) { node_module_register(&sRecord); }

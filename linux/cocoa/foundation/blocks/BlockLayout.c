#include "BlockLayout.h"

#include <stddef.h>

/// Other threads may retain and release the block meanwhile.
static int32_t Flags(const struct Block_layout *block) {
  return __atomic_load_n(&block->flags, __ATOMIC_RELAXED);
}

const struct Block_descriptor_helpers *_Block_helpers(const struct Block_layout *block) {
  if (!(Flags(block) & BLOCK_HAS_COPY_DISPOSE)) {
    return NULL;
  }
  return (const struct Block_descriptor_helpers *)(block->descriptor + 1);
}

const char *_Block_signature(const void *pointer) {
  const struct Block_layout *block = pointer;
  if (!block || !(Flags(block) & BLOCK_HAS_SIGNATURE)) {
    return NULL;
  }
  const char *field = (const char *)(block->descriptor + 1);
  if (Flags(block) & BLOCK_HAS_COPY_DISPOSE) {
    field += sizeof(struct Block_descriptor_helpers);
  }
  return ((const struct Block_descriptor_signature *)field)->signature;
}

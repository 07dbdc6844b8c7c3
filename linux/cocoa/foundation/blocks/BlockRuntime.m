// The blocks runtime. Debian's libblocksruntime neither retains captured objects nor makes blocks
// that are objects.

#include <Block.h>
#import <Foundation/NSObject.h>
#include <stdlib.h>
#include <string.h>

#import "BlockLayout.h"

/// The flags of a block or box that other threads may retain and release meanwhile.
static int32_t Load(const int32_t *flags) { return __atomic_load_n(flags, __ATOMIC_RELAXED); }

/// One more reference; a count that has reached the top stays there for good.
static void Retain(int32_t *flags) {
  int32_t old = Load(flags);
  do {
    if ((old & BLOCK_REFCOUNT_MASK) == BLOCK_REFCOUNT_MASK) {
      return;
    }
  } while (
      !__atomic_compare_exchange_n(flags, &old, old + 2, true, __ATOMIC_RELAXED, __ATOMIC_RELAXED));
}

/// Returns whether the last reference was given up.
static BOOL Release(int32_t *flags) {
  int32_t old = Load(flags);
  int32_t now;
  do {
    int32_t count = old & BLOCK_REFCOUNT_MASK;
    if (count == BLOCK_REFCOUNT_MASK || count == 0) {
      return NO;
    }
    now = count == 2 ? old - 1 : old - 2;
  } while (
      !__atomic_compare_exchange_n(flags, &old, now, true, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED));
  return (now & BLOCK_DEALLOCATING) != 0;
}

static const struct Block_descriptor_helpers *Helpers(const struct Block_layout *block) {
  if (!(Load(&block->flags) & BLOCK_HAS_COPY_DISPOSE)) {
    return NULL;
  }
  return (const struct Block_descriptor_helpers *)(block->descriptor + 1);
}

const char *_Block_signature(const void *pointer) {
  const struct Block_layout *block = pointer;
  if (!block || !(Load(&block->flags) & BLOCK_HAS_SIGNATURE)) {
    return NULL;
  }
  const char *field = (const char *)(block->descriptor + 1);
  if (Load(&block->flags) & BLOCK_HAS_COPY_DISPOSE) {
    field += sizeof(struct Block_descriptor_helpers);
  }
  return ((const struct Block_descriptor_signature *)field)->signature;
}

void *_Block_copy(const void *pointer) {
  struct Block_layout *block = (struct Block_layout *)pointer;
  if (!block) {
    return NULL;
  }
  int32_t flags = Load(&block->flags);
  if (flags & BLOCK_NEEDS_FREE) {
    Retain(&block->flags);
    return block;
  }
  if (flags & BLOCK_IS_GLOBAL) {
    return block;
  }

  struct Block_layout *copy = malloc(block->descriptor->size);
  if (!copy) {
    return NULL;
  }
  memcpy(copy, block, block->descriptor->size);
  copy->flags &= ~(BLOCK_REFCOUNT_MASK | BLOCK_DEALLOCATING);
  copy->flags |= BLOCK_NEEDS_FREE | 2;
  const struct Block_descriptor_helpers *helpers = Helpers(block);
  if (helpers) {
    helpers->copy(copy, block);
  }
  // Last, so that a debugger never sees a heap block with half its captures.
  copy->isa = _NSConcreteMallocBlock;
  return copy;
}

void _Block_release(const void *pointer) {
  struct Block_layout *block = (struct Block_layout *)pointer;
  if (!block || !(Load(&block->flags) & BLOCK_NEEDS_FREE) || !Release(&block->flags)) {
    return;
  }
  const struct Block_descriptor_helpers *helpers = Helpers(block);
  if (helpers) {
    helpers->dispose(block);
  }
  free(block);
}

static struct Block_byref_helpers *ByrefHelpers(struct Block_byref *box) {
  if (!(Load(&box->flags) & BLOCK_BYREF_HAS_COPY_DISPOSE)) {
    return NULL;
  }
  return (struct Block_byref_helpers *)(box + 1);
}

/// Moves a `__block` variable's box to the heap, or takes one more reference to it there.
static struct Block_byref *CopyByref(struct Block_byref *box) {
  struct Block_byref *current = box->forwarding;
  if (Load(&current->flags) & BLOCK_BYREF_NEEDS_FREE) {
    Retain(&current->flags);
    return current;
  }
  struct Block_byref *copy = malloc(box->size);
  if (!copy) {
    abort();
  }
  // Two references: the caller's, and that of the frame that declared the variable.
  copy->isa = NULL;
  copy->flags =
      (box->flags & ~(BLOCK_REFCOUNT_MASK | BLOCK_DEALLOCATING)) | BLOCK_BYREF_NEEDS_FREE | 4;
  copy->forwarding = copy;
  copy->size = box->size;
  box->forwarding = copy;
  struct Block_byref_helpers *helpers = ByrefHelpers(box);
  if (helpers) {
    memcpy(copy + 1, helpers, sizeof(*helpers));
    // The compiler may put a layout string after the helpers; `keep` copies the value only.
    size_t known = sizeof(*box) + sizeof(*helpers);
    memcpy((char *)copy + known, (char *)box + known, box->size - known);
    helpers->keep(copy, box);
  } else {
    memcpy(copy + 1, box + 1, box->size - sizeof(*box));
  }
  return copy;
}

static void ReleaseByref(struct Block_byref *box) {
  box = box->forwarding;
  if (!(Load(&box->flags) & BLOCK_BYREF_NEEDS_FREE) || !Release(&box->flags)) {
    return;
  }
  struct Block_byref_helpers *helpers = ByrefHelpers(box);
  if (helpers) {
    helpers->destroy(box);
  }
  free(box);
}

void _Block_object_assign(void *destination, const void *object, int flags) {
  const void **slot = destination;
  if (flags & BLOCK_BYREF_CALLER) {
    // Under manual reference counting a `__block` variable does not own what it points to.
    *slot = object;
  } else if (flags & BLOCK_FIELD_IS_BYREF) {
    *slot = CopyByref((struct Block_byref *)object);
  } else if ((flags & BLOCK_FIELD_IS_BLOCK) == BLOCK_FIELD_IS_BLOCK) {
    *slot = _Block_copy(object);
  } else if (flags & BLOCK_FIELD_IS_WEAK) {
    *slot = object;
  } else {
    *slot = [(id)object retain];
  }
}

void _Block_object_dispose(const void *object, int flags) {
  if (flags & BLOCK_BYREF_CALLER) {
    return;
  }
  if (flags & BLOCK_FIELD_IS_BYREF) {
    ReleaseByref((struct Block_byref *)object);
  } else if ((flags & BLOCK_FIELD_IS_BLOCK) == BLOCK_FIELD_IS_BLOCK) {
    _Block_release(object);
  } else if (!(flags & BLOCK_FIELD_IS_WEAK)) {
    [(id)object release];
  }
}

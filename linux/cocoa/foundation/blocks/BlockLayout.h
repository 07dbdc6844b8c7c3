// What the compiler emits for a block, as in the platform's block ABI. Private to the layer: the
// runtime itself and the parts that build or inspect blocks at run time.

#ifndef PLATFORM_BLOCK_LAYOUT_H
#define PLATFORM_BLOCK_LAYOUT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/// Flags of a block. The low 16 bits are the runtime's: bit 0 says "being deallocated", the others
/// hold the number of references times two.
enum {
  BLOCK_DEALLOCATING = 0x0001,
  BLOCK_REFCOUNT_MASK = 0xfffe,
  BLOCK_NEEDS_FREE = 1 << 24,        ///< On the heap.
  BLOCK_HAS_COPY_DISPOSE = 1 << 25,  ///< The descriptor has both helpers.
  BLOCK_IS_GLOBAL = 1 << 28,
  BLOCK_HAS_SIGNATURE = 1 << 30,  ///< The descriptor has a signature.
};

/// Flags of a `__block` variable's box, whose low 16 bits are as a block's.
enum {
  BLOCK_BYREF_NEEDS_FREE = 1 << 24,
  BLOCK_BYREF_HAS_COPY_DISPOSE = 1 << 25,
};

/// Last argument of `_Block_object_assign` and `_Block_object_dispose`.
enum {
  BLOCK_FIELD_IS_OBJECT = 3,
  BLOCK_FIELD_IS_BLOCK = 7,
  BLOCK_FIELD_IS_BYREF = 8,
  BLOCK_FIELD_IS_WEAK = 16,
  BLOCK_BYREF_CALLER = 128,  ///< The value lies in a `__block` variable: nothing is retained.
};

/// A block's descriptor. The fields after `size` are there only as the flags say: the two helpers
/// with BLOCK_HAS_COPY_DISPOSE, then the signature with BLOCK_HAS_SIGNATURE.
struct Block_descriptor {
  uintptr_t reserved;
  uintptr_t size;
};

struct Block_descriptor_helpers {
  void (*copy)(void *destination, const void *source);
  void (*dispose)(const void *block);
};

struct Block_descriptor_signature {
  const char *signature;
  const char *layout;
};

/// A block. Captured values follow.
struct Block_layout {
  void *isa;  ///< One of the three classes below.
  int32_t flags;
  int32_t reserved;
  void (*invoke)(void);  ///< Takes the block, then the block's arguments.
  struct Block_descriptor *descriptor;
};

/// The box of a `__block` variable.
struct Block_byref {
  void *isa;
  struct Block_byref *forwarding;
  int32_t flags;
  uint32_t size;
};

/// Follows a box with BLOCK_BYREF_HAS_COPY_DISPOSE.
struct Block_byref_helpers {
  void (*keep)(struct Block_byref *destination, struct Block_byref *source);
  void (*destroy)(struct Block_byref *box);
};

/// The classes of blocks; their addresses are what `isa` holds. A block that is put together at run
/// time on the heap has `_NSConcreteMallocBlock`, memory from `malloc`, and the flags
/// `BLOCK_NEEDS_FREE | BLOCK_HAS_SIGNATURE | 2` (one reference), with BLOCK_HAS_COPY_DISPOSE
/// besides where its `dispose` helper shall run before the memory is freed.
extern void *_NSConcreteStackBlock[];
extern void *_NSConcreteGlobalBlock[];
extern void *_NSConcreteMallocBlock[];

/// Returns the type encoding of `block` (result, the block itself, the arguments), which lives as
/// long as the block's code, or NULL where the block has none. It marks blocks as `@?`, which
/// neither libobjc's nor GNUstep's parsers know: drop the question mark for them. Any thread.
const char *_Block_signature(const void *block);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif

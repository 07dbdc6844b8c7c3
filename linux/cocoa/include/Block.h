// The interface of the blocks runtime, as in the system's own <Block.h>.

#ifndef PLATFORM_BLOCK_H
#define PLATFORM_BLOCK_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/// Returns a heap copy of `block`, or the block itself with one reference more where it is on the
/// heap or global already. Balance with `_Block_release`. Any thread.
void *_Block_copy(const void *block);

/// Gives up one reference to a heap block; a stack or global block is left alone. Any thread.
void _Block_release(const void *block);

/// Called by compiled code only: the copy and dispose helpers of blocks and `__block` variables.
void _Block_object_assign(void *destination, const void *object, int flags);
void _Block_object_dispose(const void *object, int flags);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#define Block_copy(...) ((__typeof(__VA_ARGS__))_Block_copy((const void *)(__VA_ARGS__)))
#define Block_release(...) _Block_release((const void *)(__VA_ARGS__))

#endif

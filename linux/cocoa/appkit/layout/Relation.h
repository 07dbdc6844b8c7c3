#ifndef PLATFORM_RELATION_H
#define PLATFORM_RELATION_H

namespace platform::layout {

/// How the left side of a constraint stands to its right side; the values are NSLayoutRelation's.
enum class Relation { kLessOrEqual = -1, kEqual = 0, kGreaterOrEqual = 1 };

}  // namespace platform::layout

#endif

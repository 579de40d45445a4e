#ifndef QUELVANE_HANDLER_INTERNAL_H
#define QUELVANE_HANDLER_INTERNAL_H

// Pieces of the polling handler shared by its source files.

#include <quelvane/api_poll.h>

namespace qv {

// The recipe's own lifetime and the one fact about it that the timer needs,
// kept beside the other recipe operations.
ClusterInfo* newRecipeTree();
void deleteRecipeTree(ClusterInfo* tree);
// Both the node scan and the disk repository scan have stamped the tree.
bool recipeScanned(ClusterInfo* tree);
// Sets clusterUpdateTime of the tree to now.
void stampClusterUpdate(ClusterInfo* tree);
// The tree's sdrfsGenNumber (0 for no tree) and the size of a ClusterInfo.
unsigned int recipeGenNumber(ClusterInfo* tree);
int clusterInfoSize();

// The stop flags (terminate, timer_terminate, execTerminate) are plain ints
// written by the destructor and read by the threads without the lock; these
// accessors make each access a single indivisible load or store. The timer
// latch TimerPollConditionMet, which the disk repository scan reads without
// the lock, goes through them too, everywhere, also under the lock.
inline int readFlag(const int& flag)
{
    return __atomic_load_n(&flag, __ATOMIC_SEQ_CST);
}
inline void writeFlag(int& flag, int value)
{
    __atomic_store_n(&flag, value, __ATOMIC_SEQ_CST);
}

}  // namespace qv

#endif

#include "framework/memory/block_stock.h"

#include <gtest/gtest.h>
#include <malloc.h>

namespace {

using namespace zel::memory;

TEST(BlockStock, HandsOutABlockAgainOnlyForWhatFitsIntoIt) {
    for (std::size_t made_for = 1; made_for <= 1100; made_for += 7) {
        give_block_back(take_block(made_for), made_for);
        for (std::size_t size = 1; size <= 1100; ++size) {
            void* const block = take_block(size);
            ASSERT_GE(malloc_usable_size(block), size) << made_for;
            give_block_back(block, size);
        }
    }
}

} // namespace

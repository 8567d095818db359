/*
 * streams/smartbuffer_block.cpp - releasing the parts of a smart buffer
 * block, shared by the appends that fail and the reads that consume.
 */
#include "halv_core.h"
#include "halv_env.h"
#include "streams/smartbuffer_internal.h"

namespace halv {

void DropMemoryPart(HalvSmartBufferBlock *block) noexcept {
    halv_internal_free(block->allocation);
    block->allocation = block->readPtr = block->writePtr = nullptr;
    block->capacity = 0;
}

void DropFilePart(HalvSmartBufferBlock *block) noexcept {
    if (block->fileName != nullptr)
        HalvDeleteFile(block->fileName);
    halv_internal_free(block->fileName);
    halv_internal_free(block->platformName);
    block->fileName = nullptr;
    block->platformName = nullptr;
    block->fileOffset = block->fileSize = 0;
}

void FreeBlock(HalvSmartBufferBlock *block) noexcept {
    DropMemoryPart(block);
    DropFilePart(block);
    halv_internal_free(block);
}

} // namespace halv

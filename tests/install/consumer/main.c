#include <stdio.h>

#include <dpk_hvsup.h>

int main(void) {
    if (HalvernInit() != 1)
        return 1;
    HalvChunk **chunks = NULL;
    if (HalvAllocArray(&chunks, 3, (uint32_t)sizeof(HalvChunk)) != 1)
        return 1;
    printf("consumer ok: %u\n", HalvGetArraySize(chunks));
    HalvFreeArray(chunks);
    return HalvernEnd() == 1 ? 0 : 1;
}

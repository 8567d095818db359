/*
 * pack.c - a stored image's header as one flat 'B' 'H' block, the form in
 * which a header crosses to code that knows no header records.
 */
#include <string.h>

#include "host.h"

int CommandPack(int argc, char **argv) {
    int order = HalvIdentifyEndian();
    if (argc == 4 && strcmp(argv[2], "--byte-order") == 0) {
        if (!ParseByteOrder(argv[3], &order))
            return Complain("--byte-order %s: big or little", argv[3]), kExitUsage;
        argc -= 2;
    }
    if (argc != 2)
        return Complain("usage: halvern pack IMAGE OUTPUT.bh [--byte-order big|little]"), kExitUsage;
    Image image;
    if (ImageOpen(&image, argv[0]) != kExitOk)
        return kExitFailed;
    void *block = NULL;
    int32_t size = HalvBinHdrFromHdr(image.header, order, &block, 0);
    ImageClose(&image);
    if (size < 0)
        return Complain("%s: its header can't be made into a block (more than 32 separations or 10 "
                        "dimensions, or no memory)",
                        argv[0]);
    Output out;
    int status = OutputOpen(&out, argv[1]);
    if (status == kExitOk)
        status = OutputFinish(&out, OutputWriteBytes(&out, block, (uint32_t)size));
    halv_internal_free(block);
    return status;
}

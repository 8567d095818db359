/*
 * modules/line_reader.h - the "[section]" and "label: value" reader that
 * the registry file and the function-description files share.
 *
 * Both are user data text read token by token, where only three token
 * kinds matter: a section name, a label with the token behind it as its
 * value, and the end.  Labels are read into 512 bytes and values into 2048;
 * a longer token is cut as the token reader cuts it.  What the lines mean
 * is the sink's business.
 */
#ifndef HALV_MODULES_LINE_READER_H
#define HALV_MODULES_LINE_READER_H

#include "halv_streams.h"

namespace halv {

/* Buffer sizes of a label and of a value, terminator included. */
constexpr uint32_t kLineLabelBytes = 512;
constexpr uint32_t kLineValueBytes = 2048;

class LineSink {
  public:
    /* What Section and Line give to go on reading; any other value ends the
     * read with that result. */
    static constexpr int kGoOn = -100;

    virtual int Section(const char *name) noexcept = 0;
    virtual int Line(const char *label, const char *value) noexcept = 0;
    /* A label that meets the end of the input: the read's result. */
    virtual int LabelAtEnd(const char *label) noexcept = 0;
    /* Any other token, passed over (its kind and text). */
    virtual void Skipped(int32_t kind, const char *text) noexcept {
        (void)kind;
        (void)text;
    }

  protected:
    ~LineSink() = default;
};

/* Reads in to its end, or until a sink call ends the read.  1 at the end of
 * the input, the sink's result when it ends the read, 0 when the token
 * buffers can't be made. */
int ReadSectionLines(HalvIO *in, LineSink &sink) noexcept;

} // namespace halv

#endif

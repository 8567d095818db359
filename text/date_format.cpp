/*
 * text/date_format.cpp - a date written by a pattern of letter runs and
 * literal text.
 *
 * The pattern is read once, left to right: a run of one ASCII letter is a
 * field, looked up in a table by its letter; anything else is literal text
 * up to the next letter outside quotes.  Fields are written as they are met,
 * so nothing but the text itself is built.
 *
 * The text goes to a stage on the stack, and only what outgrows it on to a
 * smart buffer, so that a short date costs one allocation, that of the
 * result.  Names and scratch space belong to the call: several threads may
 * format at once.
 */
#include <cstring>

#include "halv_core.h"
#include "halv_streams.h"
#include "halv_text.h"
#include "text/date_internal.h"
#include "text/print_internal.h"

namespace halv {
namespace {

/* The text of one call. */
class DateText {
public:
    DateText() noexcept = default;
    ~DateText() {
        if (spill_ != nullptr)
            HalvSBFree(spill_);
    }
    DateText(const DateText &) = delete;
    DateText &operator=(const DateText &) = delete;

    /* Space for up to count bytes (at most the stage's size) at the end of
     * the text; Commit says how many were written there. */
    char *Room(size_t count) noexcept {
        if (count > sizeof stage_ - used_)
            Flush();
        return stage_ + used_;
    }
    void Commit(size_t count) noexcept { used_ += count; }

    void Append(const char *bytes, size_t count) noexcept {
        if (count <= sizeof stage_ - used_) {
            CopyBytes(stage_ + used_, bytes, count);
            used_ += count;
            return;
        }
        Flush();
        if (count < sizeof stage_) {
            std::memcpy(stage_, bytes, count);
            used_ = count;
            return;
        }
        for (size_t done = 0; done < count && !failed_;) {
            const auto piece = static_cast<uint32_t>(count - done < kLargestAppend ? count - done : kLargestAppend);
            if (HalvSBAppend(spill_, bytes + done, piece) != static_cast<int32_t>(piece))
                failed_ = true;
            done += piece;
        }
    }

    /* The whole text as a new string, or null when memory ran out. */
    char *Finish() noexcept {
        if (failed_)
            return nullptr;
        if (spill_ == nullptr) {
            auto *text = static_cast<char *>(halv_internal_malloc(used_ + 1));
            if (text == nullptr)
                return nullptr;
            if (used_ > 16 && used_ <= 32) { /* a whole date and time: two moves */
                std::memcpy(text, stage_, 16);
                std::memcpy(text + used_ - 16, stage_ + used_ - 16, 16);
            } else {
                CopyBytes(text, stage_, used_);
            }
            text[used_] = '\0';
            return text;
        }
        const int64_t spilled = HalvSBBytesAvailable(spill_);
        if (static_cast<uint64_t>(spilled) + used_ >= SIZE_MAX)
            return nullptr;
        const size_t total = static_cast<size_t>(spilled) + used_;
        auto *text = static_cast<char *>(halv_internal_malloc(total + 1));
        if (text == nullptr)
            return nullptr;
        for (size_t done = 0; done < static_cast<size_t>(spilled);) {
            const size_t left = static_cast<size_t>(spilled) - done;
            const uint32_t read = HalvSBRead(spill_, text + done, left < kLargestAppend ? left : kLargestAppend);
            if (read == 0) {
                halv_internal_free(text);
                return nullptr;
            }
            done += read;
        }
        std::memcpy(text + spilled, stage_, used_);
        text[total] = '\0';
        return text;
    }

private:
    static constexpr size_t kLargestAppend = 0x7FFFFFFF;

    /* Moves the stage on to the smart buffer, made at the first need. */
    void Flush() noexcept {
        if (spill_ == nullptr && (spill_ = HalvSBInit(1, sizeof stage_)) == nullptr)
            failed_ = true;
        if (!failed_ && used_ > 0 &&
            HalvSBAppend(spill_, stage_, static_cast<uint32_t>(used_)) != static_cast<int32_t>(used_))
            failed_ = true;
        used_ = 0;
    }

    char stage_[256];
    size_t used_ = 0;
    HalvSmartBuffer *spill_ = nullptr;
    bool failed_ = false;
};

/* A number padded to `digits` as "%*d" (blanks) or "%0*d" (zeros) pads it:
 * the sign counts in the width and the zeros go behind it.  digits is 2
 * to 4, so a field never needs more than 24 bytes. */
void PutNumber(DateText &text, int64_t value, int digits, bool zeros) noexcept {
    /* Nearly always the value has at most `digits` digits: pad all four
     * places first, then write the digits over the end of the field. */
    if (value >= 0 && static_cast<uint64_t>(value) < digits_detail::kPowersOfTen.power[digits]) {
        char *const at = text.Room(4);
        const auto small = static_cast<uint32_t>(value);
        if (zeros && digits != 3) { /* two or four digits: whole pairs */
            if (digits == 4) {
                digits_detail::PutPair(at, small / 100);
                digits_detail::PutPair(at + 2, small % 100);
            } else {
                digits_detail::PutPair(at, small);
            }
        } else {
            std::memcpy(at, zeros ? "0000" : "    ", 4);
            WriteDecimalDigits(small, at + digits);
        }
        text.Commit(static_cast<size_t>(digits));
        return;
    }
    const uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    const int count = DigitCount(magnitude, 10);
    const int sign = value < 0 ? 1 : 0;
    const int pad = digits > count + sign ? digits - count - sign : 0;
    char *const start = text.Room(24);
    char *at = start;
    if (!zeros)
        for (int i = 0; i < pad; ++i)
            *at++ = ' ';
    if (sign)
        *at++ = '-';
    if (zeros)
        for (int i = 0; i < pad; ++i)
            *at++ = '0';
    at += count;
    WriteDecimalDigits(magnitude, at);
    text.Commit(static_cast<size_t>(at - start));
}

/* What each letter writes. */
enum class Field : uint8_t {
    kNone, /* not a field: the pattern is refused */
    kYear,
    kMonth,
    kDay,
    kYearDay,
    kWeekDay,
    kWeekDayName,
    kWeek,
    kHour,
    kHourFromOne,
    kHalfDayHour,
    kClockHour,
    kMinute,
    kSecond,
    kHalfDayText,
    kZone,
};

struct FieldRule {
    Field field;
    int8_t digits; /* a number's width */
};

constexpr auto kFieldRules = [] {
    struct {
        FieldRule rule[128];
    } t{}; /* every other byte: kNone */
    t.rule['y'] = {Field::kYear, 4};
    t.rule['Y'] = {Field::kYear, 4};
    t.rule['M'] = {Field::kMonth, 2};
    t.rule['d'] = {Field::kDay, 2};
    t.rule['D'] = {Field::kYearDay, 3};
    t.rule['e'] = {Field::kWeekDay, 2};
    t.rule['E'] = {Field::kWeekDayName, 0};
    t.rule['w'] = {Field::kWeek, 2};
    t.rule['H'] = {Field::kHour, 2};
    t.rule['k'] = {Field::kHourFromOne, 2};
    t.rule['K'] = {Field::kHalfDayHour, 2};
    t.rule['h'] = {Field::kClockHour, 2};
    t.rule['m'] = {Field::kMinute, 2};
    t.rule['s'] = {Field::kSecond, 2};
    t.rule['a'] = {Field::kHalfDayText, 0};
    t.rule['Z'] = {Field::kZone, 0};
    return t;
}();

inline bool IsAsciiLetter(unsigned char c) noexcept {
    return static_cast<unsigned char>((c | 0x20) - 'a') < 26;
}

bool PutName(DateText &text, DateNames &names, DateNames::Kind kind, int index) noexcept {
    const char *name = nullptr;
    size_t length = 0;
    if (!names.Find(kind, index, &name, &length))
        return false;
    text.Append(name, length);
    return true;
}

/* zoneOffset as sign, hours and minutes, with or without a colon between. */
void PutOffset(DateText &text, int32_t zoneOffset, bool colon) noexcept {
    const int64_t magnitude = zoneOffset < 0 ? -static_cast<int64_t>(zoneOffset) : zoneOffset;
    char field[32];
    const int32_t length = HalvSNPrintf(field, sizeof field, "%s%02d%s%02d", zoneOffset < 0 ? "-" : "+",
                                        static_cast<int>(magnitude / 3600), colon ? ":" : "",
                                        static_cast<int>(magnitude % 3600 / 60));
    if (length > 0)
        text.Append(field, static_cast<size_t>(length));
}

void PutZone(DateText &text, const HalvDate &date, size_t run) noexcept {
    if (run <= 2) {
        PutOffset(text, date.zoneOffset, run == 2);
        return;
    }
    const char *identifier = date.zoneOffset == 0 ? "UTC" : ZoneIdentifier();
    text.Append(identifier, std::strlen(identifier));
}

/* Writes the field of a run of `run` letters; false for a letter that is
 * no field, or a name that can't be had. */
bool PutField(DateText &text, DateNames &names, const HalvDate &date, unsigned char letter, size_t run) noexcept {
    const FieldRule rule = kFieldRules.rule[letter & 0x7F];
    const bool zeros = run >= 2;
    const int hour = date.hour;
    switch (rule.field) {
    case Field::kNone:
        return false;
    case Field::kYear:
        if (run == 2)
            PutNumber(text, static_cast<int64_t>(date.year) - 1900, 2, true);
        else
            PutNumber(text, date.year, rule.digits, true);
        return true;
    case Field::kMonth:
        if (run == 3)
            return PutName(text, names, DateNames::kShortMonth, date.month);
        if (run >= 4)
            return PutName(text, names, DateNames::kFullMonth, date.month);
        PutNumber(text, date.month, rule.digits, zeros);
        return true;
    case Field::kWeekDayName:
        return PutName(text, names, run <= 3 ? DateNames::kShortWeekDay : DateNames::kFullWeekDay, date.weekDay);
    case Field::kHalfDayText:
        return PutName(text, names, hour < 12 ? DateNames::kMorning : DateNames::kAfternoon, 0);
    case Field::kZone:
        PutZone(text, date, run);
        return true;
    case Field::kDay:
        PutNumber(text, date.day, rule.digits, zeros);
        return true;
    case Field::kYearDay:
        PutNumber(text, static_cast<int64_t>(date.yearDay) + 1, rule.digits, zeros);
        return true;
    case Field::kWeekDay:
        PutNumber(text, date.weekDay, rule.digits, zeros);
        return true;
    case Field::kWeek:
        PutNumber(text, (static_cast<int64_t>(date.yearDay) - date.weekDay + 7) / 7, rule.digits, zeros);
        return true;
    case Field::kHour:
        PutNumber(text, hour, rule.digits, zeros);
        return true;
    case Field::kHourFromOne:
        PutNumber(text, static_cast<int64_t>(hour) + 1, rule.digits, zeros);
        return true;
    case Field::kHalfDayHour:
        PutNumber(text, hour % 12, rule.digits, zeros);
        return true;
    case Field::kClockHour:
        PutNumber(text, hour % 12 == 0 ? 12 : hour % 12, rule.digits, zeros);
        return true;
    case Field::kMinute:
        PutNumber(text, date.minute, rule.digits, zeros);
        return true;
    case Field::kSecond:
        PutNumber(text, date.second, rule.digits, zeros);
        return true;
    }
    return false;
}

/* Literal text from p up to the next letter outside quotes or the end.  A
 * quote switches quoting and is not written; two write one.  Returns where
 * the text ended, or null when it came out empty, which only a lone quote
 * at the end of the pattern does. */
const unsigned char *PutLiteral(DateText &text, const unsigned char *p) noexcept {
    bool quoted = false;
    bool wrote = false;
    while (*p != '\0' && (quoted || !IsAsciiLetter(*p))) {
        if (*p == '\'') {
            if (p[1] == '\'') {
                text.Append("'", 1);
                wrote = true;
                p += 2;
            } else {
                quoted = !quoted;
                ++p;
            }
            continue;
        }
        const unsigned char *start = p;
        while (*p != '\0' && *p != '\'' && (quoted || !IsAsciiLetter(*p)))
            ++p;
        text.Append(reinterpret_cast<const char *>(start), static_cast<size_t>(p - start));
        wrote = true;
    }
    return wrote ? p : nullptr;
}

char *FormatDate(HalvDate &date, const unsigned char *p) noexcept {
    if (HalvMakeTime(nullptr, date.zoneOffset == 0 ? 1 : 0, &date) != 1)
        return nullptr;
    DateText text;
    DateNames names;
    while (*p != '\0') {
        if (!IsAsciiLetter(*p)) {
            /* Most literal text is one separator between two fields. */
            if (*p != '\'' && (IsAsciiLetter(p[1]) || p[1] == '\0')) {
                *text.Room(1) = static_cast<char>(*p++);
                text.Commit(1);
                continue;
            }
            p = PutLiteral(text, p);
            if (p == nullptr)
                return nullptr;
            continue;
        }
        size_t run = 1;
        while (p[run] == *p)
            ++run;
        if (!PutField(text, names, date, *p, run))
            return nullptr;
        p += run;
    }
    return text.Finish();
}

} // namespace
} // namespace halv

extern "C" HALV_API char *HalvFormatDate(HalvDate *date, const char *pattern) noexcept {
    if (date == nullptr || pattern == nullptr)
        return nullptr;
    return halv::FormatDate(*date, reinterpret_cast<const unsigned char *>(pattern));
}

/*
 * text/date_internal.h - what the date formatter needs from the rest of the
 * date code: the process's zone identifier, and the locale's month, day
 * and morning/afternoon names.
 */
#ifndef HALV_TEXT_DATE_INTERNAL_H
#define HALV_TEXT_DATE_INTERNAL_H

#include <locale.h>
#include <stddef.h>

namespace halv {

/* The zone identifier of the process, filled at the first call and the
 * same text ever after (a later change of TZ is not seen): TZ without its
 * quotes and one leading ':', else the system's zone from /etc/localtime
 * or /etc/timezone, through the Windows table; "" when nothing answers.
 * Never null. */
const char *ZoneIdentifier() noexcept;

/* The identifier of a Windows zone name ("W. Europe Standard Time" gives
 * "Europe/Berlin"), by exact comparison; null for any other text. */
const char *WindowsZoneIdentifier(const char *windowsName) noexcept;

/* The names one formatting call uses, in the locale of dates named by the
 * process's environment (LC_ALL, LC_TIME, LANG; "C" when none is set or
 * the named one can't be loaded).  Opened on the first name the pattern
 * asks for, closed when the call ends: nothing is shared between calls or
 * threads. */
class DateNames {
public:
    DateNames() noexcept = default;
    ~DateNames() {
        if (locale_ != static_cast<locale_t>(0))
            Close();
    }
    DateNames(const DateNames &) = delete;
    DateNames &operator=(const DateNames &) = delete;

    enum Kind { kFullMonth, kShortMonth, kFullWeekDay, kShortWeekDay, kMorning, kAfternoon };

    /* The name of month (1 to 12) or weekDay (0 is Sunday) by kind, or of
     * morning and afternoon (index unused), as UTF-8 bytes in *text and
     * *length; may be empty.  A text that had to be converted stays valid
     * until the next call.  False when the locale can't be opened or the
     * text not converted. */
    bool Find(Kind kind, int index, const char **text, size_t *length) noexcept;

private:
    bool Open() noexcept;
    void Close() noexcept;

    locale_t locale_ = static_cast<locale_t>(0);
    const char *codeSet_ = nullptr;
    char *converted_ = nullptr;
};

} // namespace halv

#endif

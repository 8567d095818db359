/*
 * text/date_zone.cpp - the zone identifier of the process ("Europe/Berlin"),
 * which the longest zone field of a date pattern prints.
 *
 * It is worked out once, at the first use, and kept: TZ when it is set,
 * else the zone the system is configured for.  The system names its zone
 * by the link /etc/localtime, whose target ends in the identifier behind
 * ".../zoneinfo/", or else by the first line of /etc/timezone.  Either text
 * may be a Windows zone name, which the table translates; any other text is
 * taken as it stands.
 */
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "halv_env.h"
#include "halv_util.h"
#include "text/date_internal.h"

namespace halv {
namespace {

constexpr size_t kIdentifierCapacity = 256;

constinit char zoneIdentifier[kIdentifierCapacity] = {};
constinit pthread_once_t zoneIdentifierOnce = PTHREAD_ONCE_INIT;

/* Copies text, cut to what the identifier holds. */
void StoreIdentifier(const char *text) noexcept {
    const size_t length = strnlen(text, kIdentifierCapacity - 1);
    std::memcpy(zoneIdentifier, text, length);
    zoneIdentifier[length] = '\0';
}

/* TZ as the identifier: one leading ':' (the POSIX mark of a zone file
 * name) goes, and so do quotes around any part. */
void IdentifierFromTz(const char *tz) noexcept {
    if (tz[0] == ':')
        ++tz;
    char text[kIdentifierCapacity];
    const size_t length = strnlen(tz, sizeof text - 1);
    std::memcpy(text, tz, length);
    text[length] = '\0';
    char *next = nullptr;
    const char *token = HalvTokenParseEx(text, "", HALV_TOKEN_SINGLE_QUOTES | HALV_TOKEN_DOUBLE_QUOTES, &next);
    StoreIdentifier(token != nullptr ? token : "");
}

/* The identifier in the target of the link /etc/localtime, written into
 * text; false when it is no link into a zoneinfo directory. */
bool ZoneFromLocaltimeLink(char *text, size_t capacity) noexcept {
    char target[4096];
    const ssize_t length = readlink("/etc/localtime", target, sizeof target - 1);
    if (length <= 0)
        return false;
    target[length] = '\0';
    static constexpr char kMarker[] = "zoneinfo/";
    const char *identifier = nullptr;
    for (const char *at = std::strstr(target, kMarker); at != nullptr; at = std::strstr(at + 1, kMarker))
        identifier = at + sizeof kMarker - 1;
    if (identifier == nullptr)
        return false;
    const size_t kept = strnlen(identifier, capacity - 1);
    std::memcpy(text, identifier, kept);
    text[kept] = '\0';
    return true;
}

/* The first line of /etc/timezone, written into text; false when the file
 * can't be read. */
bool ZoneFromTimezoneFile(char *text, size_t capacity) noexcept {
    const int fd = open("/etc/timezone", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    ssize_t length;
    do
        length = read(fd, text, capacity - 1);
    while (length < 0 && errno == EINTR);
    close(fd);
    if (length < 0)
        return false;
    text[length] = '\0';
    text[std::strcspn(text, "\r\n")] = '\0';
    return true;
}

void FillZoneIdentifier() noexcept {
    const char *tz = HalvGetenv("TZ");
    if (tz != nullptr) {
        IdentifierFromTz(tz);
        return;
    }
    char text[kIdentifierCapacity];
    if (!ZoneFromLocaltimeLink(text, sizeof text) && !ZoneFromTimezoneFile(text, sizeof text))
        text[0] = '\0';
    const char *identifier = WindowsZoneIdentifier(text);
    StoreIdentifier(identifier != nullptr ? identifier : text);
}

} // namespace

const char *ZoneIdentifier() noexcept {
    pthread_once(&zoneIdentifierOnce, FillZoneIdentifier);
    return zoneIdentifier;
}

} // namespace halv

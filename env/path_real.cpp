/*
 * env/path_real.cpp - HalvRealPath, the lexical path canonicaliser.
 *
 * The core is one pass over the text that never touches the file system:
 * a read position and a write position move through the same buffer (the
 * write position never passes the read position), driven by three states.
 *
 *   start      at the beginning only: a leading '/' is the root, a leading
 *              "./" is skipped, anything else is copied.
 *   copy       copies a component up to and including its '/'; a '/' that
 *              ends the text is taken back.
 *   component  at the start of a component: repeated '/' collapse, "."
 *              goes, ".." takes the previous component away.
 *
 * The root limit is the write position behind the root '/': a ".." that
 * would go below it fails the whole path.  A ".." behind a kept ".." (or
 * at the start of a relative path) stays, so "../../a" is left alone.
 */
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "env/environment_internal.h"
#include "env/path_internal.h"
#include "halv_core.h"
#include "halv_env.h"

namespace halv {
namespace {

enum class State { Start, Copy, Component, Failed };

bool EndsComponent(char c) noexcept { return c == '\0' || c == '/'; }

struct Canonicaliser {
    char *text;
    size_t read = 0;
    size_t write = 0;
    size_t rootStart = 0; /* where the output's first component starts */
    size_t rootLimit = 1;
    State state = State::Start;

    void Put(char c) noexcept { text[write++] = c; }

    /* Skips n bytes of input and the '/' behind them, if there is one. */
    void SkipWithSeparator(size_t n) noexcept {
        read += n;
        if (text[read] == '/')
            ++read;
    }

    void Start() noexcept {
        if (text[0] == '/') {
            Put('/');
            read = 1;
            rootStart = rootLimit = write;
            state = State::Component;
        } else if (text[0] == '.' && text[1] == '/') {
            read = 2;
            state = State::Component;
        } else {
            state = State::Copy;
        }
    }

    void Copy() noexcept {
        char c = text[read++];
        Put(c);
        if (c != '/')
            return;
        if (text[read] == '\0')
            --write;
        state = State::Component;
    }

    void Component() noexcept {
        const char *at = text + read;
        if (at[0] == '/')
            ++read;
        else if (at[0] == '.' && at[1] == '.' && EndsComponent(at[2]))
            ParentComponent();
        else if (at[0] == '.' && EndsComponent(at[1]))
            CurrentComponent();
        else
            state = State::Copy;
    }

    void CurrentComponent() noexcept {
        if (write == rootStart) {
            SkipWithSeparator(1);
            return;
        }
        /* Drop the '.' and the output's separator; copy puts back the one
         * that follows, if any. */
        ++read;
        --write;
        state = State::Copy;
    }

    void ParentComponent() noexcept {
        if (write == 0) {
            state = State::Copy; /* a leading ".." of a relative path stays */
            return;
        }
        if (write == rootLimit) {
            state = State::Failed;
            return;
        }
        /* The output ends with the separator behind the previous component. */
        size_t previous = write - 1;
        while (previous > rootStart && text[previous - 1] != '/')
            --previous;
        if (write - 1 - previous == 2 && text[previous] == '.' && text[previous + 1] == '.') {
            state = State::Copy;
            return;
        }
        if (previous == rootStart) {
            write = rootStart;
            SkipWithSeparator(2);
            return;
        }
        write = previous - 1;
        read += 2;
        state = State::Copy;
    }

    /* Runs the pass; false when the path climbs above its root. */
    bool Run() noexcept {
        while (text[read] != '\0' || state == State::Start) {
            switch (state) {
            case State::Start: Start(); break;
            case State::Copy: Copy(); break;
            case State::Component: Component(); break;
            case State::Failed: return false;
            }
            if (state == State::Failed)
                return false;
        }
        text[write] = '\0';
        return true;
    }
};

/* A working copy of path, made absolute against the current directory if
 * asked; null on failure. */
char *WorkingCopy(const char *path, bool makeAbsolute) noexcept {
    char *cwd = nullptr;
    if (makeAbsolute && path[0] != '/' && (cwd = getcwd(nullptr, 0)) == nullptr)
        return nullptr;
    const char *pieces[] = {cwd, cwd != nullptr ? "/" : nullptr, path};
    char *copy = JoinTexts(pieces, 3);
    free(cwd); /* getcwd allocated it with the C library */
    return copy;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API char *HalvRealPath(const char *path, int makeAbsolute, int longName) noexcept {
    using namespace halv;
    if (path == nullptr)
        return nullptr;
    char *text = WorkingCopy(path, makeAbsolute != 0);
    if (text == nullptr)
        return nullptr;
    Canonicaliser pass{text};
    bool ok = pass.Run();
    struct stat info;
    if (ok && longName)
        ok = text[0] != '\0' && stat(text, &info) == 0;
    if (!ok) {
        halv_internal_free(text);
        return nullptr;
    }
    if (text[0] != '\0')
        return text;
    halv_internal_free(text);
    return CopyEnvText(".");
}

} // extern "C"

/*
 * modules_support.h - what the module tests share: a temporary directory
 * with files in it, and an engine started on a chosen data path.
 */
#ifndef HALV_TEST_MODULES_SUPPORT_H
#define HALV_TEST_MODULES_SUPPORT_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace modtest {

/* A fresh directory, removed with everything in it at the end. */
class TempDir {
  public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "halv_modules_XXXXXX").string();
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        char *made = mkdtemp(buffer.data());
        if (made != nullptr)
            path_ = made;
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }

    std::string Write(const std::string &name, const std::string &text) const {
        std::string file = path_ + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        FILE *fp = std::fopen(file.c_str(), "wb");
        if (fp != nullptr) {
            std::fwrite(text.data(), 1, text.size(), fp);
            std::fclose(fp);
        }
        return file;
    }

  private:
    std::string path_;
};

/* The engine started with HV_DATA_PATH naming one directory, so that the
 * registry file is the test's own; stopped at the end of the scope. */
class Engine {
  public:
    explicit Engine(const std::string &dataPath) {
        setenv("HV_DATA_PATH", dataPath.c_str(), 1);
        started_ = HalvernInit();
    }
    ~Engine() {
        EXPECT_EQ(HalvernAbsoluteEnd(), 1);
        unsetenv("HV_DATA_PATH");
    }
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    int started() const { return started_; }

  private:
    int started_;
};

/* Names of a description array, in order. */
inline std::vector<std::string> Names(HalvFuncDesc **array) {
    std::vector<std::string> names;
    for (uint32_t i = 0; array != nullptr && array[i] != nullptr; ++i)
        names.push_back(array[i]->name != nullptr ? array[i]->name : "(null)");
    return names;
}

/* A string array as a vector; null gives an empty one. */
inline std::vector<std::string> Strings(char **array) {
    std::vector<std::string> out;
    for (uint32_t i = 0; array != nullptr && array[i] != nullptr; ++i)
        out.push_back(array[i]);
    return out;
}

} // namespace modtest

#endif

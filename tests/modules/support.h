/*
 * tests/modules/support.h - what the module tests share: a temporary
 * directory with files in it, and an engine started on a chosen data path.
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
#include "temp_dir.h"

namespace modtest {

using TempDir = halvtest::TempDir;

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

/* A data path of its own whose registry file holds registry, and the
 * engine started on it. */
struct Registered {
    TempDir dir;
    Engine engine;
    explicit Registered(const std::string &registry)
        : engine((dir.Write("hvregistry.dot", registry), dir.path())) {}
    int started() const { return engine.started(); }
};

/* Names of a description array, in order. */
inline std::vector<std::string> Names(HalvFuncDesc **array) {
    std::vector<std::string> names;
    for (uint32_t i = 0; array != nullptr && array[i] != nullptr; ++i)
        names.push_back(array[i]->name != nullptr ? array[i]->name : "(null)");
    return names;
}

/* The names of every description the engine knows, in order. */
inline std::vector<std::string> AllNames() {
    HalvFuncDesc **all = nullptr;
    EXPECT_EQ(HalvFindAllFuncDesc(&all), 1);
    std::vector<std::string> names = Names(all);
    HalvFreeSmartArray(all);
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

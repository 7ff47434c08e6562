// The main program of every test: each test process enters a sandbox of its own first,
// so that tests share no port, no /tmp and no device, and the machine stays untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <iostream>

#include "sim/sandbox.h"

namespace {

// The build asks for the names of the tests where no sandbox may be had.
bool onlyListsTests(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        if (!onlyListsTests(argc, argv)) {
            sim::enterSandbox();
        }
        testing::InitGoogleTest(&argc, argv);
        return RUN_ALL_TESTS();
    } catch (const std::exception &error) {
        std::cerr << "No sandbox for this test: " << error.what() << '\n';
        return 1;
    }
}

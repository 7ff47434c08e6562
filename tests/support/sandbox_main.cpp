// The main program of every test: each test process enters a sandbox of its own first,
// so that tests share no port, no /tmp and no device, and the machine stays untouched.
// A failing test shows what its daemons said; a sanitizer's report in there fails it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>

#include "sim/daemon.h"
#include "sim/sandbox.h"

namespace {

namespace fs = std::filesystem;

class DaemonOutput : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo &test) override {
        for (const auto &entry : fs::directory_iterator(sim::kDaemonOutputDirectory)) {
            if (entry.path().filename().string().rfind("daemon-", 0) == 0) {
                inspect(entry.path(), *test.result());
                fs::remove(entry.path());
            }
        }
    }

    static void inspect(const fs::path &path, const testing::TestResult &result) {
        std::ifstream file(path);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        for (const char *report : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer",
                                   "WARNING: ThreadSanitizer", "runtime error:"}) {
            if (text.find(report) != std::string::npos) {
                ADD_FAILURE() << report << " in " << path;
            }
        }
        if (result.Failed() && !text.empty()) {
            std::cerr << "---- " << path.filename().string() << '\n' << text << "----\n";
        }
    }
};

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    try {
        if (!GTEST_FLAG_GET(list_tests)) {  // the build asks for names where no sandbox may be had
            sim::enterSandbox();
            testing::UnitTest::GetInstance()->listeners().Append(new DaemonOutput);
        }
    } catch (const std::exception &error) {
        std::cerr << "No sandbox for this test: " << error.what() << '\n';
        return 1;
    }
    return RUN_ALL_TESTS();
}

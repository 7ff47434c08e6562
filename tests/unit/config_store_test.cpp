#include "config/config_store.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <sys/mount.h>
#include <sys/stat.h>

#include "config/json_text.h"
#include "tests/support/files.h"

namespace {

const std::string kBlank = R"({"uris":[{"enable":false,"idx":0,"uri":"://"},)"
                           R"({"enable":false,"idx":1,"uri":"://"}]})";
const std::string kDefault = R"({"uris":[{"enable":false,"idx":0,"uri":"srt://"},)"
                             R"({"enable":false,"idx":1,"uri":"srt://"}]})";

class ConfigStoreTest : public testing::Test {
protected:
    const std::string cfg = "/tmp/proxy.cfg";
    ConfigStore store{cfg};

    // "A+ B-": host of each slot and whether it is enabled.
    std::string slots() {
        std::string text;
        for (const std::size_t slot : {0U, 1U}) {
            StreamUri uri;
            EXPECT_EQ(store.getUri(slot, uri), 0);
            text += uri.host + (uri.enable ? "+" : "-") + (slot == 0 ? " " : "");
        }
        return text;
    }

    void startWith(const std::string &document) {
        writeFile(cfg, document);
        store.reload();
    }
};

const char *const kBoth = R"({"uris":[{"idx":0,"uri":"srt://a:1"},{"idx":1,"uri":"srt://b:2"}]})";

TEST_F(ConfigStoreTest, IsBlankUntilTheFirstReloadThenDefaultWithoutAFile) {
    EXPECT_EQ(store.urisJson(), kBlank);
    EXPECT_EQ(store.uriString(0), "://");
    store.reload();
    EXPECT_EQ(store.urisJson(), kDefault);
    EXPECT_FALSE(std::filesystem::exists(cfg));
    StreamUri uri;
    EXPECT_EQ(store.getUri(2, uri), 1);
    EXPECT_EQ(store.uriString(2).substr(0, 3), "");
}

// From "a+ b+", each document merges to the slots told and is saved or not.
TEST_F(ConfigStoreTest, MergesADocument) {
    const struct {
        const char *name, *document, *slots;
        bool saved;
    } rows[] = {
        {"one slot, enable absent", R"({"uris":[{"idx":1,"uri":"srt://n:5"}]})", "a+ n+", true},
        {"later of equal slots stands",
         R"({"uris":[{"idx":0,"uri":"srt://x:1"},{"idx":0,"uri":"srt://y:1","enable":false}]})",
         "y- b+", true},
        {"disabled keeps its address", R"({"uris":[{"idx":0,"uri":"srt://a:1","enable":false}]})",
         "a- b+", true},
        {"no idx is skipped", R"({"uris":[{"uri":"srt://n:5"},{"idx":1,"uri":"srt://m:5"}]})",
         "a+ m+", true},
        {"no uri is skipped", R"({"uris":[{"idx":0,"enable":false}]})", "a+ b+", true},
        {"idx outside is skipped",
         R"({"uris":[{"idx":2,"uri":"srt://n:5"},{"idx":-1,"uri":"srt://n:5"},)"
         R"({"idx":1,"uri":"srt://m:5"}]})",
         "a+ m+", true},
        {"bad address ends it, enable stored",
         R"({"uris":[{"idx":0,"uri":"srt://n:5"},{"idx":1,"uri":"srt://[::1:5","enable":false},)"
         R"({"idx":0,"uri":"srt://never:5"}]})",
         "n+ b-", false},
        {"wrong types are skipped",
         R"({"uris":[{"idx":"0","uri":"srt://n:5"},{"idx":0,"uri":5},{"idx":0.5,"uri":"srt://n:5"},)"
         R"({"idx":true,"uri":"srt://n:5"},{"idx":0,"uri":"srt://n:5","enable":"yes"},)"
         R"({"idx":0,"uri":"srt://n:5","enable":[]},null,7,"x",[],{"idx":1,"uri":"srt://m:5"}],)"
         R"("foo":[]})",
         "a+ m+", true},
        {"a number enables",
         R"({"uris":[{"idx":0,"uri":"srt://n:5","enable":0},)"
         R"({"idx":1,"uri":"srt://m:5","enable":1}]})",
         "n- m+", true},
        {"uris no array", R"({"uris":{"idx":0,"uri":"srt://n:5"}})", "a+ b+", true},
        {"other keys and comments",
         "// hi\n{\"uris\":[{\"idx\":0,\"uri\":\"srt://n:5\",\"k\":1}],\"z\":{}}", "n+ b+", true},
        {"empty object", "{}", "a+ b+", true},
        {"empty text", "", "a+ b+", false},
        {"no JSON", "srt://n:5", "a+ b+", false},
        {"cut off", R"({"uris":[{"idx":0,"uri":"srt://n:5"})", "a+ b+", false},
        {"root is a list", "[1]", "a+ b+", false},
        {"root is null", "null", "a+ b+", false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        startWith(kBoth);
        EXPECT_EQ(store.applyDocument(row.document), 0);
        EXPECT_EQ(slots(), row.slots);
        EXPECT_EQ(readFile(cfg), row.saved ? row.document : kBoth);
    }
}

TEST_F(ConfigStoreTest, ReloadAfterABadAddressBringsTheOldFileBack) {
    startWith(kBoth);
    store.applyDocument(
        R"({"uris":[{"idx":0,"uri":"srt://n:5"},{"idx":1,"uri":"%","enable":false}]})");
    EXPECT_EQ(slots(), "n+ b-");
    store.reload();
    EXPECT_EQ(slots(), "a+ b+");
}

TEST_F(ConfigStoreTest, ReloadReadsWhateverIsThere) {
    const std::string deep(200000, '[');
    const struct {
        const char *name;
        std::string text;
        const char *slots;
    } rows[] = {
        {"empty changes nothing", "", "a+ b+"},
        {"garbled changes nothing", std::string("\0\xff{", 3), "a+ b+"},
        {"deeply nested changes nothing", deep, "a+ b+"},
        {"6 MB", std::string(6 << 20, ' ') + R"({"uris":[{"idx":0,"uri":"srt://n:5"}]})", "n+ b+"},
        {"slot not named stays", R"({"uris":[{"idx":1,"uri":"srt://m:5"}]})", "a+ m+"},
        {"what follows the document is not read",
         R"({"uris":[{"idx":1,"uri":"srt://m:5"}]},{"idx":0,"uri":"srt://n:5"}]})", "a+ m+"},
        {"half a comment behind it", R"({"uris":[{"idx":1,"uri":"srt://m:5"}]}/* srt://)", "a+ m+"},
        {"zeroes behind it", R"({"uris":[{"idx":1,"uri":"srt://m:5"}]})" + std::string(99, '\0'),
         "a+ m+"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        startWith(kBoth);
        startWith(row.text);
        EXPECT_EQ(slots(), row.slots);
    }
}

TEST_F(ConfigStoreTest, FileThatIsGoneOrADirectoryDisablesBothSlots) {
    startWith(kBoth);
    std::filesystem::remove(cfg);
    store.reload();
    EXPECT_EQ(store.urisJson(), kDefault);

    startWith(kBoth);
    std::filesystem::remove(cfg);
    std::filesystem::create_directory(cfg);
    store.reload();
    EXPECT_EQ(store.urisJson(), kDefault);
    testing::internal::CaptureStdout();
    store.applyDocument(kBoth);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Failed to save cfg: /tmp/proxy.cfg\n"),
              std::string::npos);
    EXPECT_EQ(slots(), "a+ b+");
}

TEST_F(ConfigStoreTest, EmptyPathIsAFileThatCannotBeRead) {
    ConfigStore nowhere("");
    nowhere.reload();
    EXPECT_EQ(nowhere.urisJson(), kDefault);
    EXPECT_EQ(nowhere.applyDocument(kBoth), 0);
    EXPECT_EQ(nowhere.uriString(1), "srt://b:2");
}

// A document that does not fit must not cost the one that is there.
TEST_F(ConfigStoreTest, FullDiskKeepsTheOldDocument) {
    std::filesystem::create_directory("/tmp/small");
    ASSERT_EQ(mount("none", "/tmp/small", "tmpfs", 0, "size=16k"), 0) << strerror(errno);
    ConfigStore small("/tmp/small/proxy.cfg");
    small.applyDocument(kBoth);
    testing::internal::CaptureStdout();
    const std::string big = R"({"uris":[],"x":")" + std::string(40000, 'x') + R"("})";

    small.applyDocument(big);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Failed to save cfg: /tmp/small/proxy.cfg\n");
    EXPECT_EQ(readFile("/tmp/small/proxy.cfg"), kBoth);
}

TEST_F(ConfigStoreTest, SavingReplacesALongerDocumentWhole) {
    store.applyDocument(kBoth + std::string(5000, ' '));
    store.applyDocument(kBoth);
    EXPECT_EQ(readFile(cfg), kBoth);
}

// Half a megabyte of them took a quarter of a minute while they were collected.
TEST(JsonText, PassesOverAnyNumberOfCommentsInNoTime) {
    std::string text = "{}";
    for (int i = 0; i < 125'000; ++i) {
        text += "/**/";
    }
    const auto start = std::chrono::steady_clock::now();
    Json::Value root;
    EXPECT_TRUE(parseJson(text, root));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(JsonText, RefusesNestingThatTheLibraryThrowsOn) {
    Json::Value root;
    EXPECT_FALSE(parseJson(std::string(5000, '[') + std::string(5000, ']'), root));
    EXPECT_TRUE(parseJson(std::string(500, '[') + std::string(500, ']'), root));
}

}  // namespace

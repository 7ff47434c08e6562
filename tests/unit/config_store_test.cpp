#include "config/config_store.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <sys/mount.h>
#include <sys/stat.h>

#include "config/json_text.h"
#include "tests/support/files.h"
#include "tests/support/printed.h"

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

// Entries that name a new address for the first and for the second slot, and a whole document.
const std::string kFirst = R"({"idx":0,"uri":"srt://n:5"})";
const std::string kSecond = R"({"idx":1,"uri":"srt://m:5"})";
std::string documentOf(const std::string &entries) {
    return R"({"uris":[)" + entries + "]}";
}

const char *const kBoth = R"({"uris":[{"idx":0,"uri":"srt://a:1"},{"idx":1,"uri":"srt://b:2"}]})";

TEST_F(ConfigStoreTest, IsBlankUntilTheFirstReloadThenDefaultWithoutAFile) {
    EXPECT_EQ(store.urisJson(), kBlank);
    store.reload();
    EXPECT_EQ(store.urisJson(), kDefault);
    EXPECT_FALSE(std::filesystem::exists(cfg));
    StreamUri uri;
    EXPECT_EQ(store.getUri(2, uri), 1);
}

// From "a+ b+", each document merges to the slots told and is saved or not.
TEST_F(ConfigStoreTest, MergesADocument) {
    const std::tuple<const char *, std::string, const char *, bool> rows[] = {
        {"one slot, enable absent", documentOf(kSecond), "a+ m+", true},
        {"later of equal slots stands",
         documentOf(kFirst + R"(,{"idx":0,"uri":"srt://y:1","enable":false})"), "y- b+", true},
        {"disabled keeps its address", documentOf(R"({"idx":0,"uri":"srt://a:1","enable":false})"),
         "a- b+", true},
        {"no idx is skipped", documentOf(R"({"uri":"srt://n:5"},)" + kSecond), "a+ m+", true},
        {"no uri is skipped", documentOf(R"({"idx":0,"enable":false})"), "a+ b+", true},
        {"idx outside is skipped",
         documentOf(R"({"idx":2,"uri":"srt://n:5"},{"idx":-1,"uri":"srt://n:5"},)" + kSecond),
         "a+ m+", true},
        {"bad address ends it, enable stored",
         documentOf(kFirst + R"(,{"idx":1,"uri":"srt://[::1:5","enable":false},)"
                             R"({"idx":0,"uri":"srt://never:5"})"),
         "n+ b-", false},
        {"wrong types are skipped",
         documentOf(
             R"({"idx":"0","uri":"srt://n:5"},{"idx":0,"uri":5},{"idx":true,"uri":"srt://n:5"},)"
             R"({"idx":0.5,"uri":"srt://n:5"},{"idx":0,"uri":"srt://n:5","enable":"yes"},)"
             R"({"idx":0,"uri":"srt://n:5","enable":[]},null,7,"x",[],)" +
             kSecond),
         "a+ m+", true},
        {"a number enables",
         documentOf(
             R"({"idx":0,"uri":"srt://n:5","enable":0},{"idx":1,"uri":"srt://m:5","enable":1})"),
         "n- m+", true},
        {"uris no array", R"({"uris":{"idx":0,"uri":"srt://n:5"}})", "a+ b+", true},
        {"other keys and comments", "// hi\n{\"uris\":[" + kFirst + "],\"z\":{}}", "n+ b+", true},
        {"empty object", "{}", "a+ b+", true},
        {"empty text", "", "a+ b+", false},
        {"no JSON", "srt://n:5", "a+ b+", false},
        {"cut off", R"({"uris":[)" + kFirst, "a+ b+", false},
        {"root is a list", "[1]", "a+ b+", false},
        {"root is null", "null", "a+ b+", false},
    };
    for (const auto &[name, document, merged, saved] : rows) {
        SCOPED_TRACE(name);
        startWith(kBoth);
        EXPECT_EQ(store.applyDocument(document), 0);
        EXPECT_EQ(slots(), merged);
        EXPECT_EQ(readFile(cfg), saved ? document : kBoth);
        store.reload();  // what a bad address left behind goes again
        EXPECT_EQ(slots(), saved ? merged : "a+ b+");
    }
}

TEST_F(ConfigStoreTest, ReloadReadsWhateverIsThere) {
    const std::tuple<const char *, std::string, const char *> rows[] = {
        {"empty changes nothing", "", "a+ b+"},
        {"garbled changes nothing", std::string("\0\xff{", 3), "a+ b+"},
        {"deeply nested changes nothing", std::string(200000, '['), "a+ b+"},
        {"6 MB", std::string(6 << 20, ' ') + documentOf(kFirst), "n+ b+"},
        {"slot not named stays", documentOf(kSecond), "a+ m+"},
        {"what follows the document is not read", documentOf(kSecond) + "," + kFirst + "]}",
         "a+ m+"},
        {"half a comment behind it", documentOf(kSecond) + "/* srt://", "a+ m+"},
        {"zeroes behind it", documentOf(kSecond) + std::string(99, '\0'), "a+ m+"},
    };
    for (const auto &[name, text, merged] : rows) {
        startWith(kBoth);
        startWith(text);
        EXPECT_EQ(slots(), merged) << name;
    }
}

TEST_F(ConfigStoreTest, FileThatIsGoneOrADirectoryDisablesBothSlots) {
    for (const bool directory : {false, true}) {
        startWith(kBoth);
        std::filesystem::remove(cfg);
        if (directory) {
            std::filesystem::create_directory(cfg);
        }
        store.reload();
        EXPECT_EQ(store.urisJson(), kDefault);
    }
    EXPECT_NE(
        printedBy([&] { store.applyDocument(kBoth); }).find("Failed to save cfg: " + cfg + "\n"),
        std::string::npos);
    EXPECT_EQ(slots(), "a+ b+");
}

// A document that does not fit must not cost the one that is there.
TEST_F(ConfigStoreTest, FullDiskKeepsTheOldDocument) {
    std::filesystem::create_directory("/tmp/small");
    ASSERT_EQ(mount("none", "/tmp/small", "tmpfs", 0, "size=16k"), 0) << strerror(errno);
    ConfigStore small("/tmp/small/proxy.cfg");
    small.applyDocument(kBoth);
    const std::string big = R"({"uris":[],"x":")" + std::string(40000, 'x') + R"("})";
    EXPECT_EQ(printedBy([&] { small.applyDocument(big); }),
              "Failed to save cfg: /tmp/small/proxy.cfg\n");
    EXPECT_EQ(readFile("/tmp/small/proxy.cfg"), kBoth);
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

}  // namespace

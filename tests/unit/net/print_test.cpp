#include "net/print.h"

#include <gtest/gtest.h>

#include <string>

#include "net/mongoose.h"
#include "net/text.h"

namespace {

std::string print(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::string text = net::format(fmt, &args);
    va_end(args);
    return text;
}

TEST(Print, FormatsWhatRepliesAreMadeOf) {
    EXPECT_EQ(
        print("{%m:%s,%m:%m}\n", MG_ESC("status"), "true", MG_ESC("message"), MG_ESC("Success")),
        "{\"status\":true,\"message\":\"Success\"}\n");
    EXPECT_EQ(print("%m", MG_ESC("\b\f\n\r\t\\\"/\x01\xc3\xa4")),
              "\"\\b\\f\\n\\r\\t\\\\\\\"/\x01\xc3\xa4\"");
    EXPECT_EQ(print("%m%m", mg_print_esc, 2, "abc", MG_ESC(static_cast<char *>(nullptr))),
              "\"ab\"\"\"");
    EXPECT_EQ(print("[%-10lu ] %d %u %x %lld %c%%", 36UL, -1, 4000000000U, 255U, -5LL, 'c'),
              "[36         ] -1 4000000000 ff -5 c%");
    EXPECT_EQ(print("%.*s %.2s %s|", 3, "127.0", "abc", static_cast<char *>(nullptr)), "127 ab |");
    EXPECT_EQ(print("%.*s", 9, "ends"), "ends");
}

TEST(Match, TakesWholeTextsOnly) {
    const std::tuple<const char *, const char *, bool> rows[] = {
        {"/a", "/a", true},  {"/a/b/c", "/a/#", true},  {"", "*", true},
        {"/x", "/?", true},  {"/a", "/a/", false},      {"/a/", "/a", false},
        {"/A", "/a", false}, {"/a/b/c", "/a/*", false}, {"/api/b/d/c", "/api/*/c", false},
        {"/*", "/a", false},
    };
    for (const auto &[text, pattern, matches] : rows) {
        EXPECT_EQ(mg_match(mg_str(text), mg_str(pattern), nullptr), matches) << text << pattern;
    }
}

}  // namespace

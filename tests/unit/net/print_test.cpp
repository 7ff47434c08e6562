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

bool matches(const char *text, const char *pattern) {
    return mg_match(mg_str(text), mg_str(pattern), nullptr);
}

TEST(Match, TakesWholeTextsOnly) {
    for (const auto &[text, pattern] : {std::pair("/a", "/a"), std::pair("/a/b/c", "/a/#"),
                                        std::pair("", "*"), std::pair("/x", "/?")}) {
        EXPECT_TRUE(matches(text, pattern)) << text << " ~ " << pattern;
    }
    for (const auto &[text, pattern] :
         {std::pair("/a", "/a/"), std::pair("/a/", "/a"), std::pair("/A", "/a"),
          std::pair("/a/b/c", "/a/*"), std::pair("/api/b/d/c", "/api/*/c"),
          std::pair("/*", "/a")}) {
        EXPECT_FALSE(matches(text, pattern)) << text << " ~ " << pattern;
    }
}

TEST(Url, IsTakenApart) {
    for (const char *url : {"http://127.0.0.1:8080/a?c=d", "http://127.0.0.1/a?c=d",
                            "http://u:p@127.0.0.1:9/a?c=d", "127.0.0.1:80/a?c=d"}) {
        EXPECT_EQ(net::view(mg_url_host(url)), "127.0.0.1") << url;
        EXPECT_STREQ(mg_url_uri(url), "/a?c=d") << url;
    }
    EXPECT_EQ(net::view(mg_url_host("http://[::1]:80")), "[::1]");
    EXPECT_STREQ(mg_url_uri("http://[::1]:80"), "/");
}

}  // namespace

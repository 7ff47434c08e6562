#include "config/stream_uri.h"

#include <gtest/gtest.h>

#include "tests/support/printed.h"

namespace {

// What a record holds, in one text: every field and every option.
std::string fieldsOf(const StreamUri &uri) {
    std::string text = uri.scheme + "|" + uri.userinfo + "|" + uri.host + "|" +
                       std::to_string(uri.port) + "|" + uri.path + "|";
    for (const auto &[key, value] : uri.options) {
        text.append(key).append("=").append(value).append(";");
    }
    return text;
}

TEST(StreamUri, ParsesAndRenders) {
    const std::tuple<const char *, const char *, const char *, const char *> rows[] = {
        {"typical, keys sorted", "srt://10.0.0.1:9000?mode=caller&latency=200",
         "srt||10.0.0.1|9000||latency=200;mode=caller;",
         "srt://10.0.0.1:9000?latency=200&mode=caller"},
        {"all parts", "srt://me:pw@h:1/a//b?x=1#gone", "srt|me:pw|h|1|/a//b|x=1;",
         "srt://me:pw@h:1/a//b?x=1"},
        {"first of equal keys", "srt://h:1?a=1&a=2", "srt||h|1||a=1;", "srt://h:1?a=1"},
        {"key without value", "srt://h:1?flag", "srt||h|1||flag=;", "srt://h:1?flag"},
        {"scheme alone", "srt://", "srt|||0||", "srt://"},
        {"no port", "srt://h", "srt||h|0||", "srt://h"},
        {"IPv6 literal", "srt://[::1]:9000", "srt||::1|9000||", "srt://[::1]:9000"},
        {"plus is a blank", "srt://h:1?a=b+c%2Bd", "srt||h|1||a=b c+d;", "srt://h:1?a=b c+d"},
        {"streamid is decoded twice", "srt://h:1?streamid=a%2541", "srt||h|1||streamid=aA;",
         "srt://h:1?streamid=aA"},
        {"its second decoding spares plus", "srt://h:1?streamid=a%2Bb", "srt||h|1||streamid=a+b;",
         "srt://h:1?streamid=a+b"},
        {"streamid without value is dropped", "srt://h:1?streamid&a=1", "srt||h|1||a=1;",
         "srt://h:1?a=1"},
        {"empty streamid stands", "srt://h:1?streamid=", "srt||h|1||streamid=;",
         "srt://h:1?streamid"},
        {"other keys are decoded once", "srt://h:1?passphrase=a%2541", "srt||h|1||passphrase=a%41;",
         "srt://h:1?passphrase=a%41"},
        {"ampersand is not escaped", "srt://h:1?a=b%26c", "srt||h|1||a=b&c;", "srt://h:1?a=b&c"},
        {"percent sequence cut short", "srt://h:1?streamid=a%254", "srt||h|1||streamid=a%4;",
         "srt://h:1?streamid=a%4"},
        {"port out of range is kept", "srt://h:70000", "srt||h|70000||", "srt://h:70000"},
        {"port too long", "srt://h:99999999999", "srt||h|2147483647||", "srt://h:2147483647"},
        {"no scheme", "h:1", "h|||0|/1|", "h:///1"},
        {"empty text", "", "|||0||", "://"},
    };
    for (const auto &[name, text, fields, rendered] : rows) {
        SCOPED_TRACE(name);
        StreamUri uri;
        EXPECT_EQ(parseStreamUri(text, uri), 0);
        EXPECT_EQ(fieldsOf(uri), fields);
        EXPECT_EQ(renderStreamUri(uri), rendered);
        EXPECT_FALSE(uri.enable);
    }
}

TEST(StreamUri, RefusesWhatIsNoUriAndLeavesTheRecordAlone) {
    const std::string longest = "srt://h:1?a=" + std::string(8192 - 12, 'a');
    StreamUri taken;
    EXPECT_EQ(parseStreamUri(longest, taken), 0);
    for (const std::string &text :
         {std::string("srt://[::1:5000"), std::string("srt://h:x"), std::string("srt://a b:1"),
          std::string("srt://h:1?a=%zz"), std::string("srt://h:1?a=%4"), std::string("://"),
          std::string("%"), longest + "a"}) {
        StreamUri uri;
        uri.host = "before";
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(parseStreamUri(text, uri), 1); }),
                  "bad uri " + text.substr(0, 8192) + "\n");
        EXPECT_EQ(uri.host, "before");
    }
}

TEST(StreamUri, PrintsEveryOptionAsReceived) {
    StreamUri uri;
    const auto parse = [&] {
        EXPECT_EQ(parseStreamUri("srt://h:1?streamid=x%2541&b=1&b=2&c", uri), 0);
    };
    EXPECT_EQ(printedBy(parse), "streamid=xA\nb=1\nb=2\nc=\n");
}

}  // namespace

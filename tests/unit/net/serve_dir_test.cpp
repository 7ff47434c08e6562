#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "net/mongoose.h"
#include "sim/wait_until.h"
#include "tests/support/files.h"
#include "tests/unit/net/http_peer.h"

namespace {

const std::string kPage = "<html>hello</html>\n";
const std::string kHtml = "Content-Type: text/html; charset=utf-8\r\n";
const std::string kPlain = "Content-Type: text/plain; charset=utf-8\r\n";

struct Row {
    std::string request;  // request line without protocol, and headers
    std::string head;     // without the empty line
    std::string body;
};

void expectRows(const HttpServer &server, const std::vector<Row> &rows) {
    for (const Row &row : rows) {
        SCOPED_TRACE(row.request);
        std::string request = row.request;
        request.insert(std::min(request.find("\r\n"), request.size()), " HTTP/1.1");
        const Reply reply = ask(server, request + "\r\n\r\n");
        EXPECT_EQ(reply.head, "HTTP/1.1 " + row.head + "\r\n\r\n");
        EXPECT_EQ(reply.body, row.body);
    }
}

Row page(const std::string &request) {
    return {request, "200 OK\r\n" + kHtml + "Etag: \"1700000000.19\"\r\nContent-Length: 19", kPage};
}
Row empty(const std::string &request) {
    return {request, "200 OK\r\n" + kPlain + "Etag: \"1743698221.0\"\r\nContent-Length: 0", ""};
}
Row notFound(const std::string &request) {
    return {request, "404 Not Found\r\nContent-Length: 10         ", "Not found\n"};
}
Row moved(const std::string &request, const std::string &location) {
    return {request, "301 Moved\r\nLocation: " + location + "\r\nContent-Length: 0", ""};
}
Row refused(const std::string &request, const std::string &text) {
    const std::string length = std::to_string(text.size());
    return {request,
            "400 Bad Request\r\nContent-Length: " + length + std::string(11 - length.size(), ' '),
            text};
}
Row part(const std::string &range, const std::string &from_to, const std::string &body) {
    return {"GET /index.html\r\nRange: " + range,
            "206 Partial Content\r\n" + kHtml + "Etag: \"1700000000.19\"\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\nContent-Range: bytes " + from_to + "/19",
            body};
}
Row outside(const std::string &range) {
    return {"GET /index.html\r\nRange: " + range,
            "416 Requested Range Not Satisfiable\r\n" + kHtml +
                "Etag: \"1700000000.19\"\r\nContent-Length: 0\r\nContent-Range: bytes */19",
            ""};
}

TEST(ServeDir, AnswersFromThePackedTree) {
    const HttpServer server;
    expectRows(server,
               {page("GET /"),
                page("GET //"),
                page("GET /?a=b"),
                page("GET /index%2ehtml"),
                page("GET /index.html/"),
                page("DELETE /index.html"),
                page("GET xindex.html"),
                page("GET /index.html%00.png"),
                page("GET /index.html\r\nAccept-Encoding: gzip"),
                page("GET /index.html\r\nIf-None-Match: W/\"1700000000.19\""),
                {"GET /index.html\r\nif-none-match:  \"1700000000.19\" ",
                 "304 Not Modified\r\nContent-Length: 0          ", ""},
                {"HEAD /index.html", page("").head, ""},
                {"HEAD /nope", notFound("").head, ""},
                empty("GET /static"),
                empty("GET /static/"),
                empty("HEAD /static//"),
                {"GET /static/font.woff2",
                 "200 OK\r\n" + kPlain + "Etag: \"1700000000.4\"\r\nContent-Length: 4", "font"},
                {"GET /static/a.css",
                 "200 OK\r\nContent-Type: text/css; charset=utf-8\r\nEtag: \"1700000000.5\"\r\n"
                 "Content-Length: 5",
                 "a { }"},
                moved("GET /norec?q=1", "/norec/"),
                moved("GET /nor%65c", "/nor%65c/"),
                moved("HEAD /norec", "/norec/"),
                moved("GET *", "*/"),
                notFound("GET //index.html"),
                notFound("GET /."),
                notFound("GET /nope"),
                notFound("GET /nope/"),
                notFound("GET /INDEX.HTML"),
                notFound("GET /nore"),
                notFound("GET /web_root/index.html"),
                notFound("GET /api/%00"),
                moved("GET ?", "/"),
                refused("GET /../x", "Invalid path"),
                refused("GET /%2e%2e/x", "Invalid path"),
                refused("GET /a/..b", "Invalid path"),
                refused("GET /a%5c..%5cb", "Invalid path"),
                refused("GET /a%zz", "Invalid path"),
                refused("GET /a%4", "Invalid path"),
                notFound("GET /a..b"),
                notFound("GET /" + std::string(4085, 'a')),
                refused("GET /" + std::string(4086, 'a'), "Exceeded path size"),
                part("bytes=0-4", "0-4", "<html"),
                part("bytes=5-", "5-18", kPage.substr(5)),
                part("bytes= 18 - 18 ", "18-18", "\n"),
                part("bytes=-5", "0-18", kPage),
                part("bytes=5", "5-18", kPage.substr(5)),
                part("bytes=0-1,3-4", "0-18", kPage),
                part("bytes=0-x", "0-18", kPage),
                outside("bytes=0-19"),
                outside("bytes=19-"),
                outside("bytes=2-1"),
                outside("bytes=99999999999999999999999-"),
                page("GET /index.html\r\nRange: lines=0-4"),
                page("GET /index.html\r\nRange: bytes=x")});
    const Reply listing = get(server, "/norec/");
    EXPECT_NE(listing.body.find("<h1>Index of /norec/</h1>"), std::string::npos) << listing.body;
    EXPECT_NE(listing.body.find(R"(<a href="sub/">sub/</a></td><td name=0>0</td><td name=-1>)"),
              std::string::npos);
    EXPECT_NE(get(server, "/norec/sub/").body.find(R"(<a href="y%3c%26.txt">y&lt;&amp;.txt</a>)"),
              std::string::npos);
}

TEST(ServeDir, AnswersFromTheDisk) {
    const std::filesystem::path root = "/tmp/web_root";
    for (const char *directory : {"", "static", "packed_index", "gz_only"}) {
        std::filesystem::create_directories(root / directory);
    }
    const auto put = [&](const char *name, const std::string &text) {
        writeFile(root / name, text);
        const timespec times[2] = {{1700000000, 0}, {1700000000, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, (root / name).c_str(), times, 0), 0);
    };
    put("index.html", kPage);
    put("static/a.js", "plain");
    put("static/a.js.gz", "z");
    put("gz_only/index.html.gz", "zz");
    writeFile("/tmp/outside.html", kPage);
    std::filesystem::create_symlink("/tmp/outside.html", root / "link.txt");
    ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);

    const HttpServer server(root, nullptr);
    expectRows(
        server,
        {page("GET /"),
         page("GET //index.html"),
         page("GET /./index.html"),
         moved("GET /static", "/static/"),
         moved("GET /.", "/./"),
         {"GET /static/a.js\r\nAccept-Encoding: br, gzip;q=0",
          "200 OK\r\nContent-Type: text/javascript; charset=utf-8\r\nEtag: \"1700000000.1\"\r\n"
          "Content-Length: 1\r\nContent-Encoding: gzip",
          "z"},
         {"GET /gz_only/\r\nAccept-Encoding: gzip",
          "200 OK\r\n" + kHtml +
              "Etag: \"1700000000.2\"\r\nContent-Length: 2\r\n"
              "Content-Encoding: gzip",
          "zz"},
         notFound("GET /gz_only/"),
         notFound("GET /nope"),
         notFound("GET /fifo"),
         notFound("GET /%ff"),
         refused("GET /../outside.html", "Invalid path")});
    EXPECT_EQ(get(server, "/link.txt").body, kPage);
    EXPECT_NE(get(server, "/static/").body.find("a.js.gz"), std::string::npos);
    EXPECT_EQ(get(HttpServer("/tmp/none", nullptr), "/").status(), 200);  // an empty listing
}

TEST(ServeDir, SendsTheFileThatItMeasured) {
    writeFile("/tmp/big.log", std::string(4000000, 'a'));
    const HttpServer server("/tmp", nullptr);
    RawClient client(server.port);
    client.send("GET /big.log HTTP/1.1\r\n\r\n");
    ASSERT_TRUE(sim::waitUntil([&] { return server.calls == 1; }));
    writeFile("/tmp/new.log", "b");
    std::filesystem::rename("/tmp/new.log", "/tmp/big.log");
    EXPECT_EQ(client.reply().body, std::string(4000000, 'a'));

    writeFile("/tmp/big.log", std::string(4000000, 'a'));
    client.send("GET /big.log HTTP/1.1\r\n\r\n");
    ASSERT_TRUE(sim::waitUntil([&] { return server.calls == 2; }));
    std::filesystem::resize_file("/tmp/big.log", 10);
    EXPECT_LT(client.untilClosed().size(), 4000000U);  // cut, and seen to be cut
}

TEST(ServeDir, SendsALargeFileInStepsBetweenWhichOthersAreServed) {
    const HttpServer server;
    RawClient slow(server.port);
    slow.send("GET /large.js HTTP/1.1\r\n\r\nGET /echo HTTP/1.1\r\n\r\n");
    EXPECT_EQ(get(server, "/echo").status(), 200);
    size_t size = 0;
    const char *content = mg_unpack("/web_root/large.js", &size, nullptr);
    EXPECT_EQ(slow.reply().body, std::string(content, size));
    EXPECT_EQ(slow.reply().status(), 200);
}

}  // namespace

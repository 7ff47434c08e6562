#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "sim/wait_until.h"
#include "tests/support/files.h"
#include "tests/unit/http/http_peer.h"

namespace {

const std::string kPage = "<html>hello</html>\n";
const std::string kNotFound = "404 Not Found\r\nContent-Length: 10         ";
const std::string kInvalid = "400 Bad Request\r\nContent-Length: 12         ";
const std::string kNothing = "304 Not Modified\r\nContent-Length: 0          ";

// The head of a file's reply; `tag` is the Etag without its quotes, `more` further lines.
std::string file(const char *status, const char *type, const char *tag, int length,
                 const std::string &more = "") {
    return std::string(status) + "\r\nContent-Type: " + type + "\r\nEtag: \"" + tag +
           "\"\r\nContent-Length: " + std::to_string(length) + more;
}

const std::string kHtml = "text/html; charset=utf-8";
const std::string kPageHead = file("200 OK", kHtml.c_str(), "1700000000.19", 19);

http::StaticFiles diskFiles(const std::string &root) {
    return {std::make_unique<http::DiskTree>(), root};
}

std::string moved(const std::string &location) {
    return "301 Moved\r\nLocation: " + location + "\r\nContent-Length: 0";
}

std::string part(int length, const std::string &from_to) {
    return file("206 Partial Content", kHtml.c_str(), "1700000000.19", length,
                "\r\nContent-Range: bytes " + from_to + "/19");
}

// Each request (a request line without its protocol, and headers) gets this very reply.
void expect(const HttpServer &server, const std::string &head, const std::string &body,
            const std::vector<std::string> &requests) {
    for (std::string request : requests) {
        SCOPED_TRACE(request);
        request.insert(std::min(request.find("\r\n"), request.size()), " HTTP/1.1");
        const Reply reply = ask(server, request + "\r\n\r\n");
        EXPECT_EQ(reply.head, "HTTP/1.1 " + head + "\r\n\r\n");
        EXPECT_EQ(reply.body, body);
    }
}

TEST(StaticFiles, AnswersFromThePackedTree) {
    const HttpServer server;
    const std::string page = "GET /index.html\r\n";
    expect(server, kPageHead, kPage,
           {"GET /", "GET //", "GET /?a=b", "GET /index%2ehtml", "GET /index.html/",
            "DELETE /index.html", "GET xindex.html", "GET /index.html%00.png",
            page + "Accept-Encoding: gzip", page + "If-None-Match: W/\"1700000000.19\"",
            page + "Range: lines=0-4", page + "Range: bytes=x"});
    expect(server, kPageHead, "", {"HEAD /index.html"});
    expect(server, kNothing, "", {page + "if-none-match:  \"1700000000.19\" "});
    const char *const plain = "text/plain; charset=utf-8";
    expect(server, file("200 OK", plain, "1743698221.0", 0), "",
           {"GET /static", "GET /static/", "HEAD /static//"});
    expect(server, file("200 OK", plain, "1700000000.4", 4), "font", {"GET /static/font.woff2"});
    expect(server, file("200 OK", "text/css; charset=utf-8", "1700000000.5", 5), "a { }",
           {"GET /static/a.css"});
    expect(server, moved("/norec/"), "", {"GET /norec?q=1", "HEAD /norec"});
    expect(server, moved("/nor%65c/"), "", {"GET /nor%65c"});
    expect(server, kNotFound, "Not found\n",
           {"GET //index.html", "GET /.", "GET /nope", "GET /nope/", "GET /INDEX.HTML", "GET /nore",
            "GET /web_root/index.html", "GET /a..b", "GET /" + std::string(4085, 'a')});
    expect(server, kNotFound, "", {"HEAD /nope"});
    expect(
        server, kInvalid, "Invalid path",
        {"GET /../x", "GET /%2e%2e/x", "GET /a/..b", "GET /a%5c..%5cb", "GET /a%zz", "GET /a%4"});
    expect(server, "400 Bad Request\r\nContent-Length: 18         ", "Exceeded path size",
           {"GET /" + std::string(4086, 'a')});
    expect(server, part(5, "0-4"), "<html", {page + "Range: bytes=0-4"});
    expect(server, part(1, "18-18"), "\n",
           {page + "Range: bytes= 18 - 18 ", page + "Range: bytes=18-", page + "Range: bytes=18"});
    expect(server, part(19, "0-18"), kPage,
           {page + "Range: bytes=-5", page + "Range: bytes=0-1,3-4", page + "Range: bytes=0-x"});
    expect(server,
           file("416 Requested Range Not Satisfiable", kHtml.c_str(), "1700000000.19", 0,
                "\r\nContent-Range: bytes */19"),
           "",
           {page + "Range: bytes=0-19", page + "Range: bytes=19-", page + "Range: bytes=2-1",
            page + "Range: bytes=99999999999999999999999-"});
}

TEST(StaticFiles, ListsADirectoryWithItsNamesAsText) {
    const HttpServer server;
    const std::string outer = get(server, "/norec/").body;
    const std::string inner = get(server, "/norec/sub/").body;
    for (const auto &[page, text] :
         {std::pair(outer, "<h1>Index of /norec/</h1>"),
          std::pair(outer, R"(<a href="sub/">sub/</a></td><td name=0>0</td><td name=-1>[DIR])"),
          std::pair(outer, R"(">x.txt</a></td><td name=1700000001>1700000001</td><td name=1>1)"),
          std::pair(inner, R"(<a href="y%3c%26.txt">y&lt;&amp;.txt</a>)")}) {
        EXPECT_NE(page.find(text), std::string::npos) << text << " in " << page;
    }
}

TEST(StaticFiles, AnswersFromTheDisk) {
    const std::filesystem::path root = "/tmp/web_root";
    std::filesystem::create_directories(root / "static");
    std::filesystem::create_directories(root / "zipped");
    const timespec times[2] = {{1700000000, 0}, {1700000000, 0}};
    for (const auto &[name, text] :
         {std::pair("index.html", kPage.c_str()), std::pair("static/a.js", "plain"),
          std::pair("static/a.js.gz", "z"), std::pair("zipped/index.html.gz", "zz")}) {
        writeFile(root / name, text);
        ASSERT_EQ(utimensat(AT_FDCWD, (root / name).c_str(), times, 0), 0);
    }
    std::filesystem::create_symlink(root / "static/a.js", root / "link");
    ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);

    const HttpServer server(diskFiles(root));
    expect(server, kPageHead, kPage, {"GET /", "GET //index.html", "GET /./index.html"});
    expect(server, moved("/static/"), "", {"GET /static"});
    expect(server, moved("/./"), "", {"GET /."});
    const std::string zipped = "\r\nContent-Encoding: gzip";
    expect(server, file("200 OK", "text/javascript; charset=utf-8", "1700000000.1", 1, zipped), "z",
           {"GET /static/a.js\r\nAccept-Encoding: br, gzip;q=0"});
    expect(server, file("200 OK", kHtml.c_str(), "1700000000.2", 2, zipped), "zz",
           {"GET /zipped/\r\nAccept-Encoding: gzip"});
    expect(server, kNotFound, "Not found\n",
           {"GET /zipped/", "GET /nope", "GET /fifo", "GET /%ff"});
    expect(server, kInvalid, "Invalid path", {"GET /../web_root/index.html"});
    EXPECT_EQ(get(server, "/link").body, "plain");
    EXPECT_NE(get(server, "/static/").body.find("a.js.gz"), std::string::npos);
    expect(HttpServer(diskFiles("/tmp/none")), kNotFound, "Not found\n", {"GET /", "GET /a"});
}

TEST(StaticFiles, SendsTheFileThatItMeasured) {
    const HttpServer server(diskFiles("/tmp"));
    const std::string content(4000000, 'a');
    RawClient client(server.port);
    const auto startSending = [&](int calls) {
        writeFile("/tmp/big.log", content);
        client.send("GET /big.log HTTP/1.1\r\n\r\n");
        return sim::waitUntil([&] { return server.calls == calls; });
    };
    ASSERT_TRUE(startSending(1));
    writeFile("/tmp/new.log", "b");
    std::filesystem::rename("/tmp/new.log", "/tmp/big.log");
    EXPECT_EQ(client.reply().body, content);

    ASSERT_TRUE(startSending(2));
    std::filesystem::resize_file("/tmp/big.log", 10);
    EXPECT_LT(client.untilClosed().size(), content.size());  // cut, and seen to be cut
}

}  // namespace

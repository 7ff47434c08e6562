// The packed tree that the tests serve: a page, a directory with a record of its own, one
// without, and a file that takes many steps to send.
#include <cstring>
#include <string>

#include "net/mongoose.h"

namespace {

const std::string kLarge = [] {
    std::string text;
    for (int line = 0; text.size() < 232803; ++line) {
        text += std::to_string(line) + "\n";
    }
    return text.substr(0, 232803);
}();

struct Record {
    const char *name;
    std::string content;
    time_t mtime;
};

const Record kTable[] = {
    {"/web_root/index.html", "<html>hello</html>\n", 1700000000},
    {"/web_root/static", "", 1743698221},
    {"/web_root/static/a.css", "a { }", 1700000000},
    {"/web_root/static/font.woff2", "font", 1700000000},
    {"/web_root/norec/x.txt", "x", 1700000001},
    {"/web_root/norec/sub/y<&.txt", "y", 1700000001},
    {"/web_root/large.js", kLarge, 1700000000},
};

}  // namespace

const char *mg_unpack(const char *path, size_t *size, time_t *mtime) {
    for (const Record &record : kTable) {
        if (std::strcmp(record.name, path) == 0) {
            if (size != nullptr) {
                *size = record.content.size();
            }
            if (mtime != nullptr) {
                *mtime = record.mtime;
            }
            return record.content.c_str();
        }
    }
    return nullptr;
}

const char *mg_unlist(size_t no) {
    return no < std::size(kTable) ? kTable[no].name : nullptr;
}

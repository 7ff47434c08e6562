// The packed tree that the tests serve: a page, a directory with a record of its own, one
// without, and a file that takes many steps to send.
#include <string>

#include "net/mongoose.h"

static const struct {
    std::string name, content;
    time_t mtime;
} kTable[] = {
    {"/web_root/index.html", "<html>hello</html>\n", 1700000000},
    {"/web_root/static", "", 1743698221},
    {"/web_root/static/a.css", "a { }", 1700000000},
    {"/web_root/static/font.woff2", "font", 1700000000},
    {"/web_root/norec/x.txt", "x", 1700000001},
    {"/web_root/norec/sub/y<&.txt", "y", 1700000001},
    {"/web_root/large.js", std::string(100000, 'l') + std::string(132803, 'L'), 1700000000},
};

const char *mg_unpack(const char *path, size_t *size, time_t *mtime) {
    for (const auto &record : kTable) {
        if (record.name == path) {
            if (size != nullptr) {
                *size = record.content.size();
                *mtime = record.mtime;
            }
            return record.content.c_str();
        }
    }
    return nullptr;
}

const char *mg_unlist(size_t no) {
    return no < std::size(kTable) ? kTable[no].name.c_str() : nullptr;
}

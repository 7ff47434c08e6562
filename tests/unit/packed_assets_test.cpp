#include "tools/packed_assets.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/files.h"

namespace {

TEST(PackedAssets, StandInTheirOrder) {
    std::istringstream names(
        "favicon index.html main.css main.js readme.txt static "
        "favicon/android-chrome-192x192.png favicon/android-chrome-512x512.png "
        "favicon/apple-touch-icon.png favicon/favicon-16x16.png favicon/favicon-32x32.png "
        "favicon/favicon.ico favicon/site.webmanifest static/bootstrap.bundle.min.js "
        "static/bootstrap-icons.css static/bootstrap-icons.woff static/bootstrap-icons.woff2 "
        "static/bootstrap.min.css static/chart.js static/copyIcon.svg "
        "static/jquery-3.7.1.min.js static/jquery.cookie.js static/logo.png "
        "static/modern-normalize.min.css static/simple-notify.css static/simple-notify.min.js "
        "static/thumbnail-placeholder.svg static/Qorbi_Eye_5p.png static/visibility_off.svg "
        "static/visibility.svg");
    size_t count = 0;
    for (std::string name; names >> name; ++count) {
        EXPECT_EQ(assetName(count), "/web_root/" + name);
    }
    EXPECT_EQ(assetName(count), nullptr);
    EXPECT_EQ(assetName(1000), nullptr);
}

TEST(PackedAssets, HoldWhatTheStagedFilesHold) {
    for (size_t i = 0; assetName(i) != nullptr; ++i) {
        SCOPED_TRACE(assetName(i));
        const std::string staged =
            TIDEWELL_STAGED_ROOT + std::string(assetName(i)).substr(std::strlen("/web_root"));
        struct stat status {};
        ASSERT_EQ(stat(staged.c_str(), &status), 0);
        size_t size = 1;
        time_t mtime = 0;
        const char *data = assetContent(assetName(i), &size, &mtime);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(data[size], '\0');
        if (S_ISDIR(status.st_mode)) {
            EXPECT_EQ(size, 0U);
        } else {
            EXPECT_GT(size, 0U);
            EXPECT_TRUE(std::string(data, size) == readFile(staged));
            EXPECT_EQ(mtime, status.st_mtime);
        }
    }
}

TEST(PackedAssets, KeepTheTimesOfThePackagesTheyComeFrom) {
    for (const auto &[name, source] :
         {std::pair("chart.js", "chart.js/dist/chart.umd.js"),
          std::pair("bootstrap-icons.css", "bootstrap-icons/font/bootstrap-icons.css")}) {
        struct stat status {};
        ASSERT_EQ(stat((TIDEWELL_NODE_MODULES "/" + std::string(source)).c_str(), &status), 0);
        time_t mtime = 0;
        assetContent(("/web_root/static/" + std::string(name)).c_str(), nullptr, &mtime);
        EXPECT_EQ(mtime, status.st_mtime) << name;
    }
}

TEST(PackedAssets, AreFoundByTheirWholeNameOnly) {
    for (const char *name : {"/web_root", "/web_root/", "/web_root/static/", "/web_root/main",
                             "/web_root/main.jsx", "web_root/main.js", "/web_root/MAIN.JS", ""}) {
        SCOPED_TRACE(name);
        size_t size = 77;
        time_t mtime = 78;
        EXPECT_EQ(assetContent(name, &size, &mtime), nullptr);
        EXPECT_EQ(size, 77U);
        EXPECT_EQ(mtime, 78);
    }
    EXPECT_NE(assetContent("/web_root/main.js", nullptr, nullptr), nullptr);
}

}  // namespace

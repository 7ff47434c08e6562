#include "device/thumbnail_source.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <curl/curl.h>

namespace {

constexpr std::size_t kLongestImage = 8192;
constexpr long kConnectMs = 500;
constexpr long kFetchMs = 1000;

struct FreeHandle {
    void operator()(CURL *curl) const { curl_easy_cleanup(curl); }
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
};

// Takes what fits, and lets the rest pass. Requires: `image` has room for all that fits.
std::size_t takePart(const char *bytes, std::size_t size, std::size_t count, void *image) {
    auto &data = *static_cast<std::string *>(image);
    data.append(bytes, std::min(size * count, kLongestImage - data.size()));
    return size * count;
}

}  // namespace

ThumbnailSource::ThumbnailSource(bool thumbnails)
    : url(thumbnails ? "http://127.0.0.1/encThumbnail" : "http://127.0.0.1/thumbnail0.jpg"),
      image_type(thumbnails ? "gif" : "jpeg") {}

void ThumbnailSource::fetch() {
    const std::unique_ptr<CURL, FreeHandle> curl(curl_easy_init());
    if (!curl) {
        return;
    }
    std::string image;
    image.reserve(kLongestImage);
    std::unique_ptr<curl_slist, FreeHandle> fields;
    // The unit's server wants these two, and not the one that libcurl adds by itself.
    for (const char *field : {"Content-Type: octet-stream", "Content-Length: 0", "Accept:"}) {
        fields.reset(curl_slist_append(fields.release(), field));
    }
    curl_easy_setopt(curl.get(), CURLOPT_URL, url);
    curl_easy_setopt(curl.get(), CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_0});
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, fields.get());
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");  // whatever the environment says
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, takePart);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &image);
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT_MS, kConnectMs);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, kFetchMs);
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    if (curl_easy_perform(curl.get()) == CURLE_OK) {
        data = std::move(image);
    }
}

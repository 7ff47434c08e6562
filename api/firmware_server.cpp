#include "api/firmware_server.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>

#include <boost/xpressive/xpressive_dynamic.hpp>
#include <curl/curl.h>

#include "api/firmware_files.h"
#include "core/shared/shared_words.h"
#include "core/shared/system_log.h"

namespace {

using CurlHandle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using boost::xpressive::regex_error;
using boost::xpressive::smatch;
using boost::xpressive::sregex;

constexpr long kTransferSeconds = 10;
constexpr std::size_t kLongestLine = 4096;  // looking for links takes its square
constexpr std::size_t kListingLimit = std::size_t{1024} * 1024;  // far above any real one

// Refuses what is above the limit, which ends the transfer.
std::size_t appendToListing(const char *bytes, std::size_t size, std::size_t count, void *text) {
    auto &listing = *static_cast<std::string *>(text);
    if (listing.size() + size * count > kListingLimit) {
        return 0;
    }
    listing.append(bytes, size * count);
    return size * count;
}

std::size_t writeToFile(const char *bytes, std::size_t size, std::size_t count, void *file) {
    return fwrite(bytes, size, count, static_cast<FILE *>(file));
}

void setTimeLimits(CURL *curl) {
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, kTransferSeconds);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kTransferSeconds);
}

void trustAnyCertificate(CURL *curl) {
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
}

// A stop of the process does not wait for a transfer.
void endAtStop(CURL *curl) {
    const curl_xferinfo_callback look = [](void *, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        return stop_flag == 0 ? 0 : 1;
    };
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, look);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
}

// Signals are no way to end a name lookup in a process with threads. libcurl gives it a thread
// of its own, and waits for that thread at the end unless it is told not to.
void leaveLookupBehind(CURL *curl) {
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
#if LIBCURL_VERSION_NUM >= 0x075700
    curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L);
#endif
}

bool fetchListing(CURL *curl, std::string &listing) {
    listing.reserve(kListingLimit);  // so that no allocation can fail inside libcurl
    curl_easy_setopt(curl, CURLOPT_URL, kFirmwareUrl);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendToListing);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &listing);
    curl_easy_setopt(curl, CURLOPT_DIRLISTONLY, 1L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    setTimeLimits(curl);
    trustAnyCertificate(curl);
    endAtStop(curl);
    leaveLookupBehind(curl);
    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        systemLog(LOG_ERR, "Could not fetch firmware listing %s", curl_easy_strerror(result));
    }
    return result == CURLE_OK;
}

bool fetchFile(const std::string &url, FILE *file) {
    const CurlHandle curl(curl_easy_init(), curl_easy_cleanup);
    if (!curl) {
        return false;
    }
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, writeToFile);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, file);
    setTimeLimits(curl.get());
    curl_easy_setopt(curl.get(), CURLOPT_FOLLOWLOCATION, 1L);
    trustAnyCertificate(curl.get());
    endAtStop(curl.get());
    leaveLookupBehind(curl.get());
    curl_easy_setopt(curl.get(), CURLOPT_FAILONERROR, 1L);  // an error page is no script
    const CURLcode result = curl_easy_perform(curl.get());
    if (result != CURLE_OK) {
        printf("Curl perform failed. url = %s %d\n", url.c_str(), result);
    }
    return result == CURLE_OK;
}

}  // namespace

const char *const kFirmwareUrl = TIDEWELL_FIRMWARE_URL;

void listFirmware(std::set<std::string> &names, const std::string &platform) {
    const CurlHandle curl(curl_easy_init(), curl_easy_cleanup);
    if (!curl) {
        systemLog(LOG_ERR, "Failed to allocate curl");
        return;
    }
    std::string listing;
    if (fetchListing(curl.get(), listing)) {
        names.merge(scrapeFirmwareNames(listing, platform));
    }
}

std::set<std::string> scrapeFirmwareNames(const std::string &listing, const std::string &platform) {
    std::set<std::string> names;
    try {
        const auto link = sregex::compile("<a href=\"(tidewell-" + platform + ".*?)\">");
        std::istringstream lines(listing);
        for (std::string line; std::getline(lines, line);) {
            line.resize(std::min(line.size(), kLongestLine));
            smatch match;
            if (boost::xpressive::regex_search(line, match, link) && match[1].length() > 0) {
                names.insert(match[1]);
            }
        }
    } catch (const regex_error &failure) {
        systemLog(LOG_ERR, "Platform \"%s\": %s", platform.c_str(), failure.what());
    }
    return names;
}

std::string downloadFirmware(const std::string &base, const std::string &name,
                             const std::string &directory) {
    std::string path = directory + name;
    const std::string url = base + name;
    pruneFirmware(name, directory);
    printf("Downloading url %s as %s\n", url.c_str(), path.c_str());
    // One name for all: what a kill leaves is neither listed nor kept for long.
    const std::string unfinished = directory + ".tidewell-download";
    FILE *file = fopen(unfinished.c_str(), "wbe");
    if (file == nullptr) {
        systemLog(LOG_ERR, "File open failed = %s \n", path.c_str());
        return "";
    }
    const bool fetched = fetchFile(url, file);
    const bool written = fclose(file) == 0;
    if (!fetched || !written || rename(unfinished.c_str(), path.c_str()) != 0) {
        remove(unfinished.c_str());
        if (fetched) {
            systemLog(LOG_ERR, "File write failed = %s", path.c_str());
        }
        return "";
    }
    return path;
}

// The still image of the video: fetched from the unit's own web server at the moment that
// somebody asks, never in the background.
//
// The image outlives a failed fetch: what a client gets then is the last good one. One
// longer than 8192 bytes is cut, and the cut image is what clients get.
#pragma once

#include <string>
#include <string_view>

// Threads: API thread only.
// Owner:   the API thread, for as long as it runs.
// Errors:  none reported; a failed fetch leaves the image as it is.
class ThumbnailSource {
public:
    // `thumbnails` is true on the units that encode and offer a GIF, false on those that
    // offer a JPEG.
    explicit ThumbnailSource(bool thumbnails);

    // Fetches, and waits for the end: half a second at most for the connection, one second at
    // most for all of it.
    void fetch();

    const char *imageType() const { return image_type; }
    std::string_view image() const { return data; }  // empty before the first good fetch

private:
    const char *const url;         // fixed at construction
    const char *const image_type;  // fixed at construction; behind "image/"
    std::string data;
};

// The still image of the video: fetched from the unit's own web server at the moment that
// somebody asks, never in the background.
//
// The image outlives a failed fetch: what a client gets then is the last good one. One
// longer than the buffer is cut, and the cut image is what clients get.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// Threads: API thread only.
// Owner:   the API thread, for as long as it runs.
// Errors:  none reported; a failed fetch leaves the image as it is.
class ThumbnailSource {
public:
    // `thumbnails` is true on the units that encode and offer a GIF, false on those that
    // offer a JPEG.
    explicit ThumbnailSource(bool thumbnails);

    // Fetches, on an event manager of its own, and waits for the end: half a second at most
    // for the connection, one second at most for all of it. Turns the HTTP layer's log off,
    // lest a missing web server fill it.
    void fetch();

    // Takes a new image, cut to the buffer.
    void store(const char *bytes, std::size_t count);

    const char *imageType() const { return image_type; }
    const char *image() const { return data.data(); }
    std::uint32_t imageSize() const { return size; }

private:
    const char *const url;         // fixed at construction
    const char *const image_type;  // fixed at construction; behind "image/"
    std::array<char, 8192> data{};
    std::uint32_t size = 0;  // valid bytes in data; 0 before the first good fetch
};

#include "sim/test_picture.h"

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace sim {
namespace {

// Codes of any width, packed into bytes; JPEG fills from the top, GIF from the bottom.
class BitWriter {
public:
    explicit BitWriter(bool top_first) : from_top(top_first) {}

    void put(std::uint32_t code, unsigned width) {
        for (unsigned i = 0; i < width; ++i) {
            putBit(code >> (from_top ? width - 1 - i : i) & 1U);
        }
    }
    // The rest of the last byte becomes ones.
    std::string finish() {
        while (filled != 0) {
            putBit(1);
        }
        return bytes;
    }

private:
    void putBit(std::uint32_t bit) {
        current |= bit << (from_top ? 7 - filled : filled);
        if (++filled == 8) {
            bytes += static_cast<char>(current);
            if (from_top && current == 0xFF) {
                bytes += '\0';  // or it would be read as a JPEG marker
            }
            current = 0;
            filled = 0;
        }
    }

    const bool from_top;
    std::string bytes;
    std::uint32_t current = 0;
    unsigned filled = 0;
};

std::string bytesOf(std::initializer_list<unsigned> values) {
    std::string bytes;
    for (const unsigned value : values) {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

constexpr unsigned kGifWidth = 96;
constexpr unsigned kGifHeight = 54;
constexpr unsigned kGifColours = 128;

unsigned barAt(unsigned column, unsigned width, unsigned step) {
    return ((column + step) * 8 / width) % 8;
}

// Codes of a fixed width, with the table cleared before it would ask for a wider one.
std::string gifPixels(unsigned step) {
    BitWriter codes(false);
    for (unsigned i = 0; i < kGifWidth * kGifHeight; ++i) {
        if (i % 100 == 0) {
            codes.put(kGifColours, 8);
        }
        codes.put(barAt(i % kGifWidth, kGifWidth, step) * 16, 8);
    }
    codes.put(kGifColours + 1, 8);
    return codes.finish();
}

constexpr unsigned kJpegBlocksAcross = 40;
constexpr unsigned kJpegBlocksDown = 22;

// The one grey value of an 8 x 8 block, as the difference from the one before: its
// length in bits by a fixed four-bit code, the bits, and "no more in this block".
void putBlock(BitWriter &bits, int difference) {
    const auto magnitude = static_cast<unsigned>(std::abs(difference));
    const auto length = static_cast<unsigned>(std::bit_width(magnitude));
    bits.put(length, 4);
    bits.put(difference < 0 ? ~magnitude : magnitude, length);
    bits.put(0, 1);
}

std::string jpegBlocks(unsigned step) {
    BitWriter bits(true);
    int previous = 0;
    for (unsigned i = 0; i < kJpegBlocksAcross * kJpegBlocksDown; ++i) {
        const int grey =
            static_cast<int>(barAt(i % kJpegBlocksAcross, kJpegBlocksAcross, step)) * 30 - 105;
        putBlock(bits, grey - previous);
        previous = grey;
    }
    return bits.finish();
}

}  // namespace

std::string gifPicture(unsigned step) {
    std::string file = "GIF89a" + bytesOf({kGifWidth, 0, kGifHeight, 0, 0xF6, 0, 0});
    for (unsigned colour = 0; colour < kGifColours; ++colour) {
        const unsigned bar = colour / 16;
        file += bytesOf({(bar & 2U) != 0 ? 0U : 200U, (bar & 4U) != 0 ? 0U : 200U,
                         (bar & 1U) != 0 ? 0U : 200U});
    }
    file += bytesOf({0x2C, 0, 0, 0, 0, kGifWidth, 0, kGifHeight, 0, 0, 7});
    const std::string pixels = gifPixels(step);
    for (std::size_t at = 0; at < pixels.size(); at += 255) {
        const std::string piece = pixels.substr(at, 255);
        file += static_cast<char>(piece.size()) + piece;
    }
    return file + bytesOf({0, 0x3B});
}

std::string jpegPicture(unsigned step) {
    std::string file = bytesOf({0xFF, 0xD8});
    // Quantization: 8 for the mean value, so that a step of it is one of brightness.
    file += bytesOf({0xFF, 0xDB, 0, 67, 0, 8}) + std::string(63, '\1');
    file += bytesOf({0xFF, 0xC0, 0, 11, 8, 0, kJpegBlocksDown * 8, kJpegBlocksAcross * 8 >> 8U,
                     kJpegBlocksAcross * 8 & 0xFFU, 1, 1, 0x11, 0});
    // Twelve codes of four bits for the lengths 0 to 11, and one of a single bit.
    file += bytesOf({0xFF, 0xC4, 0, 31, 0x00, 0, 0, 0, 12}) + std::string(12, '\0') +
            bytesOf({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    file += bytesOf({0xFF, 0xC4, 0, 20, 0x10, 1}) + std::string(15, '\0') + bytesOf({0});
    file += bytesOf({0xFF, 0xDA, 0, 8, 1, 1, 0, 0, 63, 0});
    return file + jpegBlocks(step) + bytesOf({0xFF, 0xD9});
}

}  // namespace sim

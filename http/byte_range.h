// The Range header: which part of a file a client wants.
#pragma once

#include <cstdint>
#include <string_view>

namespace http {

struct ByteRange {
    enum class Kind { Whole, Part, Unsatisfiable };

    Kind kind = Kind::Whole;
    std::uint64_t first = 0;
    std::uint64_t last = 0;  // with Part only
};

// One range is understood. A list of ranges, a count from the end and an end that is no number
// count as a range up to the end of the file; a header without any number as none at all. A
// range that reaches past the end is not cut to fit: it is Unsatisfiable.
ByteRange parseByteRange(std::string_view header, std::uint64_t file_size);

}  // namespace http

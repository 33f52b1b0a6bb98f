#pragma once

/// The segments of an OCTET STRING whose length is not known beforehand (X.690, 8.7.3.2).

#include "asn1/definite.hpp"
#include "asn1/der.hpp"
#include "core/bytes.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace klunortredi::csp {

/// Cuts a stream into OCTET STRINGs, which do not depend on how the caller cut it. `emit` takes the octets of each.
class ContentSegments {
public:
    template <class Emit>
    void add(ByteView piece, Emit emit) {
        if (!waiting_.empty()) {
            const ByteView filling = piece.first(std::min(piece.size(), segmentSize - waiting_.size()));
            der::append(waiting_, filling);
            piece = piece.subspan(filling.size());
            if (waiting_.size() == segmentSize) {
                write(waiting_, emit);
                waiting_.clear();
            }
        }
        for (; piece.size() >= segmentSize; piece = piece.subspan(segmentSize)) {
            write(piece.first(segmentSize), emit);
        }
        der::append(waiting_, piece);
    }

    /// The last segment, if there is anything left for it.
    template <class Emit>
    void finish(Emit emit) {
        if (!waiting_.empty()) {
            write(std::exchange(waiting_, {}), emit);
        }
    }

private:
    /// Octets of one segment: large enough that headers cost nothing, small enough to be held while content comes octet
    /// by octet.
    static constexpr std::size_t segmentSize = 64U << 10U;

    template <class Emit>
    static void write(ByteView segment, Emit emit) {
        emit(definiteHeader(der::tag::OctetString, segment.size()));
        emit(segment);
    }

    Bytes waiting_; ///< what does not fill a segment yet
};

} // namespace klunortredi::csp

#pragma once

#include "orvik/plugin/export.hpp"

#include <cstddef>
#include <memory>
#include <vector>

namespace orvik::plugin {

/// A streaming operation: initialize once, update any number of times, finalize once.
class ORVIK_EXPORT IDataHandler {
public:
    /// Base of each handler's own parameters.
    struct ORVIK_EXPORT Params {
        Params() = default;
        Params(const Params&) = default;
        Params& operator=(const Params&) = default;
        virtual ~Params();
    };

    IDataHandler() = default;
    IDataHandler(const IDataHandler&) = delete;
    IDataHandler& operator=(const IDataHandler&) = delete;
    virtual ~IDataHandler();

    /// A fresh parameter object of the handler's own type.
    [[nodiscard]] std::unique_ptr<Params> params() const { return paramsImpl(); }
    /// Throws std::bad_cast when `params` is of another handler's type.
    bool initialize(const Params& params) { return initializeImpl(params); }
    /// `consumed`, when given, gets the number of octets accepted.
    bool update(const unsigned char* data, std::size_t size, std::size_t* consumed = nullptr) {
        return updateImpl(data, size, consumed);
    }
    bool finalize(std::vector<unsigned char>& out) { return finalizeImpl(out); }

    [[nodiscard]] virtual std::unique_ptr<Params> paramsImpl() const = 0;
    virtual bool initializeImpl(const Params& params) = 0;
    virtual bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) = 0;
    virtual bool finalizeImpl(std::vector<unsigned char>& out) = 0;
};

} // namespace orvik::plugin

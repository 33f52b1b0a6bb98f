#include "refusal.hpp"

#include "service_words.hpp"

#include <filesystem>
#include <new>

namespace klunortredi::admin {

using cli::ExitCode;
using cli::Failure;

Failure refusal(const std::string& what, const csp::ApiError& error) {
    const cli::Meaning* const meaning = cli::serviceMeaning(error.code());
    return meaning == nullptr ? Failure(ExitCode::service, what, "the service refused", {}, error.code())
                              : Failure(meaning->exit, what, meaning->why, meaning->next, error.code());
}

Failure pinRefusal(const std::string& what, const csp::ApiError& error, const csp::Container& container) {
    if (error.code() != capi::SCARD_W_WRONG_CHV || !container.wantsPin()) {
        return refusal(what, error);
    }
    return {ExitCode::pin, what, "the PIN is wrong, " + std::to_string(container.triesRemaining()) + " tries left"};
}

Failure currentRefusal(const std::string& what) {
    try {
        throw;
    } catch (const Failure& e) {
        return e;
    } catch (const csp::ApiError& e) {
        return refusal(what, e);
    } catch (const std::bad_alloc&) {
        return {ExitCode::input, what, "not enough memory"};
    } catch (const std::system_error& e) {
        return {ExitCode::input, what, e.code().message(), {}, static_cast<std::uint32_t>(e.code().value())};
    } catch (const std::exception& e) {
        return {ExitCode::defect, what, std::string("unexpected: ") + e.what(), "please report this"};
    } catch (...) {
        return {ExitCode::defect, what, "unexpected", "please report this"};
    }
}

} // namespace klunortredi::admin

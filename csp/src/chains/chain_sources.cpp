#include "chains/chain_sources.hpp"

#include "chains/weak_algorithm.hpp"
#include "core/warning.hpp"
#include "stores/system_store.hpp"
#include "x509/blob.hpp"
#include "x509/crl.hpp"
#include "x509/x509_der.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

/// CRLs of one issuer that are decoded: partitioned lists and old ones add up, hostile ones must not.
constexpr std::size_t mostCrlsOfAnIssuer = 64;

std::shared_ptr<OpenStore> systemStore(const char* name) {
    // Not in the handle table: nobody closes it, it goes with the last context of the chain.
    return std::make_shared<OpenStore>(SystemStore::open(name), false);
}

unsigned long hashOf(const X509_NAME* name) {
    return X509_NAME_hash_ex(name, nullptr, nullptr, nullptr);
}

bool before(ByteView left, ByteView right) {
    return std::ranges::lexicographical_compare(left, right);
}

} // namespace

ChainSources::ChainSources(const std::shared_ptr<OpenStore>& additional, const std::shared_ptr<OpenStore>& anchors) {
    sources_.push_back({anchors ? anchors : systemStore("root"), true});
    for (const char* name : {"ca", "my", "trust"}) {
        sources_.push_back({systemStore(name), false});
    }
    if (additional) {
        sources_.push_back({additional, false}); // last: what a message brings never crowds out what the user keeps
    }
}

void ChainSources::add(const std::shared_ptr<OpenStore>& store) {
    sources_.push_back({store, false});
    for (const unsigned long hash : collected_) {
        collectFrom(sources_.back(), hash);
    }
    if (crlsRead_) {
        readCrlsOf(*store);
    }
}

void ChainSources::collect(unsigned long hash) {
    if (collected_.insert(hash).second) {
        for (const Source& source : sources_) {
            collectFrom(source, hash);
        }
    }
}

void ChainSources::collectFrom(const Source& source, unsigned long hash) {
    const Criterion subject{
        [hash](const Certificate& held) { return subjectNumber(blobView(held.info().Subject)) == subjectNumber(hash); },
        {{}, {{SearchBy::Subject, subjectNumber(hash)}}}};
    Match found = source.store->store().next(0, subject);
    while (found.certificate) {
        const std::uint64_t last = found.certificate->ordinal();
        candidates_.emplace(hash, Candidate{std::move(found.certificate), source.store, source.anchors});
        found = source.store->store().next(last, subject);
    }
    unread_ = unread_ == 0 ? found.unread : unread_;
}

std::vector<const Candidate*> ChainSources::named(const X509_NAME* name, std::size_t limit) {
    std::vector<Candidate*> same;
    collect(hashOf(name));
    const auto [first, last] = candidates_.equal_range(hashOf(name));
    for (auto at = first; at != last; ++at) {
        same.push_back(&at->second);
    }
    // Equal copies stand together, the anchor first.
    std::ranges::sort(same, [](const Candidate* left, const Candidate* right) {
        const ByteView a = left->certificate->encoded();
        const ByteView b = right->certificate->encoded();
        return std::ranges::equal(a, b) ? left->anchor && !right->anchor : before(a, b);
    });
    std::vector<const Candidate*> found;
    for (Candidate* const candidate : same) {
        if (found.size() == limit) {
            break;
        }
        if (!found.empty() &&
            std::ranges::equal(found.back()->certificate->encoded(), candidate->certificate->encoded())) {
            continue;
        }
        if (!candidate->x509) {
            candidate->x509 = ossl::fromDer<ossl::X509Ptr>(d2i_X509, candidate->certificate->encoded());
        }
        if (candidate->x509 && X509_NAME_cmp(X509_get_subject_name(candidate->x509.get()), name) == 0) {
            found.push_back(candidate);
        }
    }
    return found;
}

const Candidate* ChainSources::anchor(const Certificate& certificate) {
    collect(certificate.decoded().subjectHash());
    const auto [first, last] = candidates_.equal_range(certificate.decoded().subjectHash());
    const auto found = std::find_if(first, last, [&](const auto& item) {
        return item.second.anchor && std::ranges::equal(item.second.certificate->encoded(), certificate.encoded());
    });
    return found == last ? nullptr : &found->second;
}

void ChainSources::readCrls() {
    if (crlsRead_) {
        return;
    }
    crlsRead_ = true;
    for (const Source& source : sources_) {
        readCrlsOf(*source.store);
    }
}

void ChainSources::readCrlsOf(OpenStore& store) {
    for (StoredCrl& stored : store.store().crls()) {
        const auto head = crlHead(stored.der);
        auto issuer = head ? ossl::fromDer<ossl::X509NamePtr>(d2i_X509_NAME, head->issuer) : nullptr;
        if (!issuer) {
            warn("not a CRL, left out: " + stored.name);
            continue;
        }
        const unsigned long hash = hashOf(issuer.get());
        crls_[hash].push_back({std::move(stored), std::move(issuer)});
    }
}

IssuerCrls ChainSources::crlsOf(const X509_NAME* name) {
    readCrls();
    IssuerCrls found;
    for (RevocationList& list : crls_[hashOf(name)]) {
        if (list.unusable || X509_NAME_cmp(list.issuer.get(), name) != 0) {
            continue;
        }
        if (found.lists.size() == mostCrlsOfAnIssuer) {
            found.complete = false;
            break;
        }
        if (!list.crl) {
            list.crl = ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, list.stored.der);
        }
        list.unusable = !list.crl || hasBrokenSignature(list.crl.get());
        if (list.unusable) {
            warn("CRL does not decode or has a broken signature algorithm, left out: " + list.stored.name);
        } else {
            found.lists.push_back(list.crl);
        }
    }
    return found;
}

} // namespace klunortredi::csp

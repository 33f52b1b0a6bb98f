#include "chain_mutations.hpp"

#include <random>

namespace chain_mutations {

namespace {

using namespace chain_draft;

constexpr const char* constraint = "nameConstraints";
constexpr const char* alternative = "subjectAltName";
constexpr const char* policies = "certificatePolicies";
constexpr const char* usage = "extendedKeyUsage";
constexpr const char* distribution = "issuingDistributionPoint";
constexpr const char* points = "crlDistributionPoints";
constexpr int keyCompromise = 1;
constexpr int superseded = 4;
constexpr int removeFromCrl = 8;
constexpr long leafSerial = 4;
constexpr long subSerial = 3;

/// An extension of a certificate is set, or removed with an empty value.
auto with(const char* subject, const char* name, const char* value) {
    return [=](Draft& draft) { draft.of(subject).set(name, value); };
}

/// A constraint in ca, and a name in the leaf.
auto names(const char* limits, const char* name) {
    return [=](Draft& draft) {
        draft.of("ca").set(constraint, limits);
        draft.of("leaf").set(alternative, name);
    };
}

auto valid(const char* subject, long from, long to) {
    return [=](Draft& draft) {
        draft.of(subject).from = from;
        draft.of(subject).to = to;
    };
}

auto damaged(const char* subject) {
    return [=](Draft& draft) { draft.of(subject).damaged = true; };
}

auto without(const char* subject) {
    return [=](Draft& draft) {
        std::erase_if(draft.certificates,
                      [&](const Certificate& one) { return one.subject == subject && one.place != Place::target; });
    };
}

auto unknown(const char* subject, const char* kind) {
    return [=](Draft& draft) { draft.of(subject).unknown = kind; };
}

auto mail(const char* subject, const char* usages) {
    return [=](Draft& draft) {
        draft.usage = "smimesign";
        draft.of(subject).set(usage, usages);
    };
}

/// Policies of ca, sub and leaf; the policy constraints of ca.
auto policy(const char* ca, const char* sub, const char* leaf, const char* constraints) {
    return [=](Draft& draft) {
        draft.of("ca").set(policies, ca);
        draft.of("sub").set(policies, sub);
        draft.of("leaf").set(policies, leaf);
        draft.of("ca").set("policyConstraints", constraints);
    };
}

auto crl(const char* issuer, const std::function<void(Crl&)>& change) {
    return [=](Draft& draft) {
        draft.askRevocation();
        change(draft.crlOf(issuer));
    };
}

/// A delta CRL of sub to its complete one.
auto delta(std::vector<Revoked> complete, std::vector<Revoked> changes) {
    return [=](Draft& draft) {
        draft.askRevocation();
        draft.crlOf("sub").revoked = complete;
        draft.crls.push_back(
            {.issuer = "sub", .signer = subKey, .from = -3600, .number = 2, .base = 1, .revoked = changes});
        draft.of("leaf").set("freshestCRL", "URI:http://crl.example.org/delta.crl");
    };
}

/// A CRL of `lists`, certified by ca, over certificates of sub.
auto indirect(long revokedSerial, const char* entryIssuer) {
    return [=](Draft& draft) {
        draft.askRevocation();
        Certificate lists = draft.of("ca");
        lists.subject = "lists";
        lists.issuer = "ca";
        lists.key = otherKey;
        lists.signer = caKey;
        lists.serial = 9;
        lists.place = Place::issuer;
        lists.set("keyUsage", "critical,cRLSign");
        lists.set("basicConstraints", "");
        draft.certificates.push_back(lists);
        Crl& list = draft.crlOf("sub");
        list = {.issuer = "lists", .signer = otherKey, .extensions = {{distribution, "critical,@indirect"}}};
        list.revoked.push_back({.serial = revokedSerial, .issuer = entryIssuer});
        draft.of("leaf").set(points, "point_of_other");
    };
}

/// Two CRLs of sub, each for some reasons.
auto partitioned(std::vector<Revoked> some, std::vector<Revoked> others, bool both) {
    return [=](Draft& draft) {
        draft.askRevocation();
        Crl& first = draft.crlOf("sub");
        first.extensions = {{distribution, "critical,@some_reasons"}};
        first.revoked = some;
        if (both) {
            draft.crls.push_back({.issuer = "sub",
                                  .signer = subKey,
                                  .number = 2,
                                  .revoked = others,
                                  .extensions = {{distribution, "critical,@other_reasons"}}});
        }
    };
}

/// A second certificate of an authority's name.
auto second(const char* subject, const std::function<void(Certificate&)>& change, bool first) {
    return [=](Draft& draft) {
        Certificate copy = draft.of(subject);
        copy.serial += 50;
        change(copy);
        draft.certificates.insert(first ? draft.certificates.begin() : draft.certificates.end(), copy);
    };
}

void withoutKeyIdentifiers(Draft& draft) {
    for (Certificate& certificate : draft.certificates) {
        certificate.set("subjectKeyIdentifier", "");
        certificate.set("authorityKeyIdentifier", "");
    }
}

/// Root is not an anchor; sub and ca certify each other.
void loop(Draft& draft) {
    without("root")(draft);
    draft.of("ca").issuer = "sub";
    draft.of("ca").signer = subKey;
}

void loopWithAWayOut(Draft& draft, bool first) {
    second(
        "ca",
        [](Certificate& copy) {
            copy.issuer = "sub";
            copy.signer = subKey;
        },
        first)(draft);
}

void elsewhereCertifies(Certificate& copy) {
    copy.issuer = "elsewhere";
    copy.signer = spareKey;
}
void nobodyCertifies(Certificate& copy) {
    copy.issuer = "nobody";
    copy.signer = otherKey;
}
void anotherKey(Certificate& copy) {
    copy.key = otherKey;
    if (copy.place == Place::anchor) {
        copy.signer = otherKey;
    }
}
void expired(Certificate& copy) {
    copy.to = -day;
}

const std::vector<Mutation> validity{
    {"nothing", [](Draft&) {}},
    {"leaf expired", valid("leaf", -10 * day, -1)},
    {"leaf not yet valid", valid("leaf", 3600, day)},
    {"leaf valid from the next second", valid("leaf", 1, day)},
    {"leaf valid from this second", valid("leaf", 0, day)},
    {"sub expired", valid("sub", -10 * day, -day)},
    {"sub not yet valid", valid("sub", day, 2 * day)},
    {"ca expired", valid("ca", -10 * day, -day)},
    {"root expired", valid("root", -10 * day, -day)},
    {"leaf valid for fifty years", valid("leaf", -day, 50 * 365 * day)},
    {"leaf damaged", damaged("leaf")},
    {"sub damaged", damaged("sub")},
    {"ca damaged", damaged("ca")},
    {"leaf signed by another key", [](Draft& draft) { draft.of("leaf").signer = caKey; }},
    {"sub missing", without("sub")},
    {"ca missing", without("ca")},
    {"root missing", without("root")},
    {"sub an anchor", [](Draft& draft) { draft.of("sub").place = Place::anchor; }},
    {"sub an anchor, ca missing",
     [](Draft& draft) {
         draft.of("sub").place = Place::anchor;
         without("ca")(draft);
     }},
    {"sub of version 1",
     [](Draft& draft) {
         draft.of("sub").version = 0;
         draft.of("sub").extensions.clear();
     }},
    {"leaf of version 1",
     [](Draft& draft) {
         draft.of("leaf").version = 0;
         draft.of("leaf").extensions.clear();
     }},
};

const std::vector<Mutation> authority{
    {"sub not an authority", with("sub", "basicConstraints", "critical,CA:FALSE")},
    {"sub without basic constraints", with("sub", "basicConstraints", "")},
    {"ca with path length 0", with("ca", "basicConstraints", "critical,CA:TRUE,pathlen:0")},
    {"ca with path length 1", with("ca", "basicConstraints", "critical,CA:TRUE,pathlen:1")},
    {"root with path length 1", with("root", "basicConstraints", "critical,CA:TRUE,pathlen:1")},
    {"root with path length 2", with("root", "basicConstraints", "critical,CA:TRUE,pathlen:2")},
    {"sub with path length 0", with("sub", "basicConstraints", "critical,CA:TRUE,pathlen:0")},
    {"leaf an authority",
     [](Draft& draft) {
         draft.of("leaf").set("basicConstraints", "critical,CA:TRUE");
         draft.of("leaf").set("keyUsage", "critical,digitalSignature,keyCertSign");
     }},
    {"sub without keyCertSign", with("sub", "keyUsage", "critical,cRLSign")},
    {"ca without keyCertSign", with("ca", "keyUsage", "critical,digitalSignature")},
    {"sub without key usage", with("sub", "keyUsage", "")},
    {"leaf without key usage", with("leaf", "keyUsage", "")},
    {"leaf without key identifiers", with("leaf", "authorityKeyIdentifier", "")},
    {"leaf names another key of its issuer", [](Draft& draft) { draft.of("leaf").named = otherKey; }},
    {"nobody names keys", withoutKeyIdentifiers},
    {"unknown critical extension in leaf", unknown("leaf", "critical")},
    {"unknown critical extension in sub", unknown("sub", "critical")},
    {"unknown critical extension in root", unknown("root", "critical")},
    {"unknown extension in leaf", unknown("leaf", "plain")},
    {"mail asked, leaf for mail", mail("leaf", "emailProtection")},
    {"mail asked, leaf for servers", mail("leaf", "serverAuth")},
    {"mail asked, leaf for anything", mail("leaf", "")},
    {"mail asked, ca for servers", mail("ca", "serverAuth")},
    {"mail asked, ca for mail", mail("ca", "emailProtection,clientAuth")},
    {"leaf for servers", with("leaf", usage, "critical,serverAuth")},
};

const std::vector<Mutation> constraints{
    {"mail within", names("critical,permitted;email:example.org", "email:ann@example.org")},
    {"mail outside", names("critical,permitted;email:example.org", "email:ann@example.com")},
    {"mail of a host below", names("critical,permitted;email:.example.org", "email:ann@mail.example.org")},
    {"mail excluded", names("critical,excluded;email:ann@example.org", "email:ann@example.org")},
    {"mail next to the excluded", names("critical,excluded;email:ann@example.org", "email:bob@example.org")},
    {"DNS name within", names("critical,permitted;DNS:example.org", "DNS:www.example.org")},
    {"DNS name outside", names("critical,permitted;DNS:example.org", "DNS:www.example.com")},
    {"DNS name that only ends alike", names("critical,permitted;DNS:example.org", "DNS:badexample.org")},
    {"DNS name excluded", names("critical,excluded;DNS:www.example.org", "DNS:www.example.org")},
    {"wildcard over an excluded DNS name", names("critical,excluded;DNS:www.example.org", "DNS:*.example.org")},
    {"address within", names("critical,permitted;IP:10.0.0.0/255.0.0.0", "IP:10.1.2.3")},
    {"address outside", names("critical,permitted;IP:10.0.0.0/255.0.0.0", "IP:11.1.2.3")},
    {"URI within", names("critical,permitted;URI:example.org", "URI:http://example.org/x")},
    {"URI outside", names("critical,permitted;URI:example.org", "URI:http://example.com/x")},
    {"URI with user information", names("critical,permitted;URI:example.org", "URI:http://example.org@example.com/x")},
    {"directory name outside", with("ca", constraint, "critical,permitted;dirName:limited")},
    {"other kind of name", names("critical,permitted;email:example.org", "DNS:www.example.com")},
    {"two constraints, within both",
     [](Draft& draft) {
         names("critical,permitted;DNS:example.org", "DNS:a.b.example.org")(draft);
         draft.of("sub").set(constraint, "critical,permitted;DNS:b.example.org");
     }},
    {"two constraints, within one",
     [](Draft& draft) {
         names("critical,permitted;DNS:example.org", "DNS:a.c.example.org")(draft);
         draft.of("sub").set(constraint, "critical,permitted;DNS:b.example.org");
     }},
    {"mail in the subject outside",
     [](Draft& draft) {
         draft.of("ca").set(constraint, "critical,permitted;email:example.org");
         draft.of("leaf").email = "ann@example.com";
     }},
};

const std::vector<Mutation> certificatePolicies{
    {"one policy required and there", policy("1.2.3.4", "1.2.3.4", "1.2.3.4", "critical,requireExplicitPolicy:0")},
    {"one policy required, leaf of another",
     policy("1.2.3.4", "1.2.3.4", "1.2.3.5", "critical,requireExplicitPolicy:0")},
    {"one policy required, leaf of none", policy("1.2.3.4", "1.2.3.4", "", "critical,requireExplicitPolicy:0")},
    {"policies differ, none required", policy("1.2.3.4", "1.2.3.5", "1.2.3.6", "")},
    {"any policy below", policy("1.2.3.4", "2.5.29.32.0", "1.2.3.4", "critical,requireExplicitPolicy:0")},
    {"any policy below, inhibited",
     [](Draft& draft) {
         policy("1.2.3.4", "2.5.29.32.0", "1.2.3.4", "critical,requireExplicitPolicy:0")(draft);
         draft.of("ca").set("inhibitAnyPolicy", "critical,0");
     }},
    {"policy mapped",
     [](Draft& draft) {
         policy("1.2.3.4", "1.2.3.4", "1.2.3.5", "critical,requireExplicitPolicy:0")(draft);
         draft.of("sub").set("policyMappings", "critical,1.2.3.4:1.2.3.5");
     }},
    {"policy mapped, inhibited",
     [](Draft& draft) {
         policy("1.2.3.4", "1.2.3.4", "1.2.3.5", "critical,requireExplicitPolicy:0,inhibitPolicyMapping:0")(draft);
         draft.of("sub").set("policyMappings", "critical,1.2.3.4:1.2.3.5");
     }},
};

const std::vector<Mutation> paths{
    {"a loop", loop},
    {"a loop with a way out, first", [](Draft& draft) { loopWithAWayOut(draft, true); }},
    {"a loop with a way out, last", [](Draft& draft) { loopWithAWayOut(draft, false); }},
    {"ca certified by two anchors, first", second("ca", elsewhereCertifies, true)},
    {"ca certified by two anchors, last", second("ca", elsewhereCertifies, false)},
    {"ca certified by nobody too, first", second("ca", nobodyCertifies, true)},
    {"ca certified by nobody too, last", second("ca", nobodyCertifies, false)},
    {"ca certified by elsewhere alone",
     [](Draft& draft) {
         without("root")(draft);
         second("ca", elsewhereCertifies, false)(draft);
     }},
    {"an expired copy of sub, first", second("sub", expired, true)},
    {"an expired copy of sub, last", second("sub", expired, false)},
    {"root re-keyed, first", second("root", anotherKey, true)},
    {"root re-keyed, last", second("root", anotherKey, false)},
    {"sub re-keyed, first", second("sub", anotherKey, true)},
    {"sub re-keyed without key identifiers, first",
     [](Draft& draft) {
         second("sub", anotherKey, true)(draft);
         withoutKeyIdentifiers(draft);
     }},
    {"sub twice", second(
                      "sub", [](Certificate& copy) { copy.serial -= 50; }, true)},
    {"root an issuer too", second(
                               "root",
                               [](Certificate& copy) {
                                   copy.place = Place::issuer;
                                   copy.serial -= 50;
                               },
                               true)},
};

const std::vector<Mutation> revocation{
    {"nothing revoked", [](Draft& draft) { draft.askRevocation(); }},
    {"leaf revoked", crl("sub", [](Crl& list) { list.revoked.push_back({leafSerial}); })},
    {"leaf revoked for a reason", crl("sub",
                                      [](Crl& list) {
                                          list.revoked.push_back({leafSerial, keyCompromise});
                                      })},
    {"another certificate revoked", crl("sub", [](Crl& list) { list.revoked.push_back({77}); })},
    {"sub revoked", crl("ca", [](Crl& list) { list.revoked.push_back({subSerial}); })},
    {"CRL of sub missing",
     [](Draft& draft) {
         draft.askRevocation();
         std::erase_if(draft.crls, [](const Crl& list) { return list.issuer == "sub"; });
     }},
    {"CRL of sub expired", crl("sub", [](Crl& list) { list.to = -3600; })},
    {"CRL of sub from the future", crl("sub", [](Crl& list) { list.from = 3600; })},
    {"CRL of sub damaged", crl("sub", [](Crl& list) { list.damaged = true; })},
    {"CRL of sub signed by another key", crl("sub", [](Crl& list) { list.signer = otherKey; })},
    {"CRL of sub with an unknown critical extension", crl("sub", [](Crl& list) { list.unknownCritical = true; })},
    {"sub may not sign CRLs",
     [](Draft& draft) {
         draft.askRevocation();
         draft.of("sub").set("keyUsage", "critical,keyCertSign");
     }},
    {"delta revokes leaf", delta({}, {{leafSerial}})},
    {"delta revokes another", delta({}, {{77}})},
    {"delta takes leaf off the hold", delta({{leafSerial, 6}}, {{leafSerial, removeFromCrl}})},
    {"indirect CRL revokes leaf", indirect(leafSerial, "sub")},
    {"indirect CRL revokes another", indirect(77, "sub")},
    {"indirect CRL revokes the serial of another issuer", indirect(leafSerial, "ca")},
    {"CRL for users revokes leaf", crl("sub",
                                       [](Crl& list) {
                                           list.extensions = {{distribution, "critical,@user"}};
                                           list.revoked = {{leafSerial}};
                                       })},
    {"CRL for users", crl("sub",
                          [](Crl& list) {
                              list.extensions = {{distribution, "critical,@user"}};
                          })},
    {"CRL for authorities", crl("sub",
                                [](Crl& list) {
                                    list.extensions = {{distribution, "critical,@authority"}};
                                })},
    {"CRL for attribute certificates", crl("sub",
                                           [](Crl& list) {
                                               list.extensions = {{distribution, "critical,@attribute"}};
                                           })},
    {"CRL of the leaf's place",
     [](Draft& draft) {
         crl("sub", [](Crl& list) { list.extensions = {{distribution, "critical,@place"}}; })(draft);
         draft.of("leaf").set(points, "point");
     }},
    {"CRL of another place",
     [](Draft& draft) {
         crl("sub", [](Crl& list) { list.extensions = {{distribution, "critical,@other_place"}}; })(draft);
         draft.of("leaf").set(points, "point");
     }},
    {"CRLs for all reasons", partitioned({}, {}, true)},
    {"CRLs for all reasons, leaf in the first", partitioned({{leafSerial, keyCompromise}}, {}, true)},
    {"CRLs for all reasons, leaf in the second", partitioned({}, {{leafSerial, superseded}}, true)},
    {"CRL for some reasons", partitioned({}, {}, false)},
    {"CRL for some reasons revokes leaf", partitioned({{leafSerial, keyCompromise}}, {}, false)},
};

} // namespace

const std::vector<Mutation>& all() {
    static const std::vector<Mutation> list = [] {
        std::vector<Mutation> joined;
        for (const auto* const part :
             {&validity, &authority, &constraints, &certificatePolicies, &paths, &revocation}) {
            joined.insert(joined.end(), part->begin(), part->end());
        }
        return joined;
    }();
    return list;
}

std::vector<Generated> generate(std::size_t pairs, std::uint32_t seed) {
    std::vector<Generated> list;
    const auto add = [&](const std::vector<const Mutation*>& mutations) {
        Generated made;
        try {
            for (const Mutation* const mutation : mutations) {
                made.names.emplace_back(mutation->name);
                mutation->apply(made.draft);
            }
        } catch (const std::runtime_error&) {
            return; // the first took away what the second changes
        }
        list.push_back(std::move(made));
    };
    for (const Mutation& mutation : all()) {
        add({&mutation});
    }
    std::minstd_rand random(seed); // the same numbers everywhere, unlike a distribution's
    for (const std::size_t end = list.size() + pairs; list.size() < end;) {
        const Mutation& first = all()[random() % all().size()];
        const Mutation& then = all()[random() % all().size()];
        add({&first, &then});
    }
    return list;
}

} // namespace chain_mutations

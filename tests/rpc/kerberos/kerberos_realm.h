#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace rpc_test {

/// A Kerberos realm of this process's own: a KDC on a free port of loopback, with its database in a temporary folder. The
/// environment of the process is set so that Kerberos, here and in programs started from here, knows this realm and no other;
/// so there is one at a time, made before any server.
///
/// Users, with their name as password: "anna", "bob", "root" and "anna/admin". Services, with their keys in `keytab()`:
/// "TarnoTapeSvc/server.tarno.test" and "host/server.tarno.test". "stranger/server.tarno.test" is known to the KDC only.
class kerberos_realm {
public:
    /// Whether the programs of a KDC are installed.
    [[nodiscard]] static bool available();

    kerberos_realm();
    ~kerberos_realm();
    kerberos_realm(const kerberos_realm&) = delete;
    kerberos_realm& operator=(const kerberos_realm&) = delete;

    /// Takes the place of whoever had tickets before.
    void log_in(const std::string& user) const;
    /// Nobody has tickets.
    void log_out() const;
    /// Gets a ticket for a service into the user's cache, for clients that can't ask this KDC themselves.
    void fetch_ticket(const std::string& service) const;

    [[nodiscard]] std::string keytab() const { return folder_ / "server.keytab"; }
    [[nodiscard]] std::string ticket_cache() const { return folder_ / "tickets"; }
    [[nodiscard]] std::string path(const std::string& file) const { return folder_ / file; }
    /// Puts the keys of one more service into a keytab of its own.
    void add_service(const std::string& principal, const std::string& key_type, const std::string& keytab_file) const;

    static inline const std::string name = "TARNO.TEST";
    static inline const std::string service = "TarnoTapeSvc/server.tarno.test";

private:
    void write_settings() const;
    void start_kdc();

    test_support::temporary_folder folder_;
    std::uint16_t port_;
    pid_t kdc_ = -1;
    int log_ = -1;  ///< kept open for what the KDC has to say: it must not end of a broken pipe
};

}  // namespace rpc_test

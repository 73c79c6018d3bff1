#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "components/certificates/CertificateBinding.h"
#include "components/certificates/TlsCertificate.h"
#include "platform/Event.h"
#include "platform/Lock.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// The certificates that are bound to hosts (see kCertificateBindingsKey). Host names compare without regard
/// to case. Safe to use from any thread.
class CCertificates {
 public:
    /// `report` is told, in a sentence, of a certificate that could not be read again; once for each state of
    /// its values and files. It is called by Follow and Refresh, without a lock.
    CCertificates(std::shared_ptr<IKey> localMachine, std::function<void(const std::wstring&)> report);
    ~CCertificates();
    CCertificates(const CCertificates&) = delete;
    CCertificates& operator=(const CCertificates&) = delete;

    /// A host's certificate while it is followed: what it holds changes when files or binding do.
    class CBinding;
    /// Starts to follow the binding of `host`:`port`; when there is none, or its certificate cannot be read,
    /// null, and `reason` says what is wrong and, without a binding, how to make one (qbctl cert bind). A
    /// binding that is followed already is shared, and has at least its last good certificate. It is followed
    /// until the last pointer to it is gone.
    std::shared_ptr<const CBinding> Follow(const std::string& host, int port, std::wstring& reason);
    /// The certificate to show now; never null.
    static std::shared_ptr<const CTlsCertificate> Current(const CBinding& binding);

    /// Reads again every followed binding whose values, or whose files' stamps, have changed. A certificate
    /// that cannot be read is reported, and the last good one stays; so it does when the binding is deleted.
    /// Without a change this costs a look at the registry, and one at each file.
    void Refresh();

 private:
    using Reports = std::vector<std::wstring>;
    struct CSource;

    std::shared_ptr<CBinding> FollowLocked(const std::wstring& name, Reports& reports, std::wstring& reason);
    /// Whether values below the key may have changed since this was last asked.
    bool HaveValuesChanged();
    void ReadValuesAgain(CBinding& binding, Reports& reports) const;
    void Report(const Reports& reports) const;

    // Constant after construction.
    const std::shared_ptr<IKey> m_localMachine;
    const std::function<void(const std::wstring&)> m_report;
    const std::shared_ptr<CEvent>
        m_changed;  ///< set by changes below the key; null when there is no event left

    CMutex m_lock{LockRank::Certificates};  // guards what follows, and what bindings know of values and files
    std::map<std::wstring, std::weak_ptr<CBinding>, CLessNoCase> m_bindings;  ///< by <host>:<port>
    std::unique_ptr<IKey> m_watched;
};

}  // namespace quorbel

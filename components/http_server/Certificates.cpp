#include "components/http_server/Certificates.h"

#include <mutex>
#include <optional>

#include "platform/File.h"

namespace quorbel {

namespace {

/// The event, or null: then changes of the registry are looked for every time.
std::shared_ptr<CEvent> CreateEvent() {
    auto event = CEvent::Create(EventReset::Auto);
    return event.IsOk() ? std::move(event).Value() : nullptr;
}

}  // namespace

/// What a certificate is read from: while this is the same, so is the certificate.
struct CCertificates::CSource {
    /// One file's state: its stamp, or why there is none.
    struct CFileState {
        explicit CFileState(const std::wstring& path) {
            const auto found = StampOf(path);
            error = found.Error();
            if (found.IsOk()) stamp = found.Value();
        }
        bool operator==(const CFileState&) const = default;
        CFileStamp stamp;
        ErrorCode error;
    };

    explicit CSource(const CCertificateFiles& from)
        : files(from), certificate(from.certificate), privateKey(from.privateKey) {}
    bool operator==(const CSource&) const = default;
    CCertificateFiles files;
    CFileState certificate;
    CFileState privateKey;
};

class CCertificates::CBinding {
 public:
    explicit CBinding(std::wstring name) : m_name(std::move(name)) {}

    const std::wstring& Name() const noexcept { return m_name; }

    std::shared_ptr<const CTlsCertificate> Current() const {
        const std::lock_guard lock(m_lock);
        return m_current;
    }

    /// Reads the certificate when its files have changed or could not be read; what is wrong with it, when
    /// that is new.
    std::optional<std::wstring> Load() {
        CSource source(m_files);
        const bool isChanged = !m_source || source != *m_source;
        if (!isChanged && !m_isBad) return std::nullopt;
        std::wstring reason;
        const auto loaded =
            CTlsCertificate::Load(ToUtf8(m_files.certificate), ToUtf8(m_files.privateKey), reason);
        m_source = std::move(source);
        m_isBad = !loaded;
        if (!loaded) return isChanged ? std::optional(reason) : std::nullopt;
        Show(loaded);
        return std::nullopt;
    }

    // The lock of CCertificates guards what follows.
    CCertificateFiles m_files;
    bool m_hasOldValues = false;     ///< the registry is to be read again
    std::wstring m_problemOfValues;  ///< as reported

 private:
    void Show(std::shared_ptr<const CTlsCertificate> certificate) {
        const std::lock_guard lock(m_lock);
        m_current.swap(certificate);
    }

    const std::wstring m_name;        ///< <host>:<port>
    std::optional<CSource> m_source;  ///< what was last read, or tried
    bool m_isBad = false;             ///< it could not be read
    mutable CMutex m_lock{LockRank::Innermost};
    std::shared_ptr<const CTlsCertificate> m_current;  ///< guarded by m_lock
};

CCertificates::CCertificates(std::shared_ptr<IKey> localMachine,
                             std::function<void(const std::wstring&)> report)
    : m_localMachine(std::move(localMachine)), m_report(std::move(report)), m_changed(CreateEvent()) {}

CCertificates::~CCertificates() = default;

std::shared_ptr<const CTlsCertificate> CCertificates::Current(const CBinding& binding) {
    return binding.Current();
}

std::shared_ptr<CCertificates::CBinding> CCertificates::FollowLocked(const std::wstring& name,
                                                                     Reports& reports, std::wstring& reason) {
    const auto files = ReadCertificateBinding(*m_localMachine, name, reason);
    if (!files.IsOk()) return nullptr;
    const auto known = m_bindings.find(name);
    auto binding = known == m_bindings.end() ? nullptr : known->second.lock();
    if (!binding) binding = std::make_shared<CBinding>(name);
    binding->m_files = files.Value();
    const auto problem = binding->Load();
    if (!binding->Current()) {
        reason = problem.value_or(L"");
        return nullptr;
    }
    if (problem) reports.push_back(*problem);
    m_bindings[name] = binding;
    return binding;
}

std::shared_ptr<const CCertificates::CBinding> CCertificates::Follow(const std::string& host, int port,
                                                                     std::wstring& reason) {
    const std::wstring name = FromUtf8(host) + L':' + std::to_wstring(port);
    if (host.find('\\') != host.npos) {
        reason = L"This is no host name: " + FromUtf8(host);
        return nullptr;
    }
    Reports reports;
    std::unique_lock lock(m_lock);
    auto binding = FollowLocked(name, reports, reason);
    lock.unlock();
    Report(reports);
    return binding;
}

bool CCertificates::HaveValuesChanged() {
    const auto arm = [this] {
        return m_watched->Watch(WatchScope::Subtree, WatchFilter::NamesAndValues, m_changed) ==
               ErrorCode::Success;
    };
    if (!m_changed) return true;
    // Arming again sets the event for all that was committed before; values are read after that.
    if (m_watched && arm()) return m_changed->Test();
    auto key = m_localMachine->Open(kCertificateBindingsKey, KeyAccess::Read);
    m_watched = key.IsOk() ? std::move(key).Value() : nullptr;
    if (m_watched && !arm()) m_watched = nullptr;
    return true;
}

void CCertificates::ReadValuesAgain(CBinding& binding, Reports& reports) const {
    std::wstring reason;
    const auto files = ReadCertificateBinding(*m_localMachine, binding.Name(), reason);
    const bool isBad = files.Error() == ErrorCode::BadPathname;
    // Of a deleted binding the files go on being followed.
    binding.m_hasOldValues = !files.IsOk() && !isBad && files.Error() != ErrorCode::FileNotFound;
    if (isBad && reason != binding.m_problemOfValues) reports.push_back(reason);
    if (files.IsOk()) binding.m_files = files.Value();
    binding.m_problemOfValues = isBad ? reason : std::wstring();
}

void CCertificates::Refresh() {
    Reports reports;
    std::unique_lock lock(m_lock);
    std::erase_if(m_bindings, [](const auto& known) { return known.second.expired(); });
    const bool haveChanged = !m_bindings.empty() && HaveValuesChanged();
    for (const auto& known : m_bindings) {
        const auto binding = known.second.lock();
        if (!binding) continue;
        if (haveChanged || binding->m_hasOldValues) ReadValuesAgain(*binding, reports);
        if (const auto problem = binding->Load()) reports.push_back(*problem);
    }
    lock.unlock();
    Report(reports);
}

void CCertificates::Report(const Reports& reports) const {
    for (const std::wstring& report : reports)
        m_report(report + L" The certificate read before stays in use.");
}

}  // namespace quorbel

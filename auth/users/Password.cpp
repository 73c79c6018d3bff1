#include "auth/users/Password.h"

#include <openssl/crypto.h>
#include <utility>

#include "auth/users/UserEntry.h"
#include "platform/Text.h"
#include "platform/crypto/Base64.h"
#include "platform/crypto/Random.h"

namespace quorbel {

namespace {

constexpr std::size_t kSaltTextSize = 24;
constexpr std::size_t kHashTextSize = 32;
static_assert(kHashTextSize == 2 * std::tuple_size_v<PasswordHash>);

CSecretBytes ToHashText(const PasswordHash& hash) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::array<char, kHashTextSize> text;
    for (std::size_t i = 0; i < hash.size(); ++i) {
        text[2 * i] = kDigits[hash[i] >> 4];
        text[2 * i + 1] = kDigits[hash[i] & 0xF];
    }
    return CSecretBytes(std::string_view(text.data(), text.size()));
}

std::string_view ToBytes(const PasswordSalt& salt) {
    return {reinterpret_cast<const char*>(salt.data()), salt.size()};
}

/// The characters of little-endian UTF-16, with none of its buffers left behind.
CSecretText FromSecretUtf16(std::string_view bytes) {
    std::u16string units(bytes.size() / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i) {
        const auto low = static_cast<unsigned char>(bytes[2 * i]);
        const auto high = static_cast<unsigned char>(bytes[2 * i + 1]);
        units[i] = static_cast<char16_t>(low | high << 8);
    }
    CSecretText text(FromUtf16(units));
    Wipe(units);
    return text;
}

}  // namespace

CPassword::CPassword(std::wstring_view plain) : m_form(PasswordForm::Plain), m_plain(ToSecretUtf8(plain)) {}

CPassword::CPassword(CPassword&& other) noexcept
    : m_form(std::exchange(other.m_form, PasswordForm::None)),
      m_plain(std::move(other.m_plain)),
      m_hashText(std::move(other.m_hashText)),
      m_salt(other.m_salt) {}

CPassword& CPassword::operator=(CPassword&& other) noexcept {
    CPassword taken(std::move(other));
    std::swap(m_form, taken.m_form);
    std::swap(m_plain, taken.m_plain);
    std::swap(m_hashText, taken.m_hashText);
    std::swap(m_salt, taken.m_salt);
    return *this;
}

ErrorCode CPassword::Read(const IKey& user) {
    *this = CPassword();
    auto value = user.Query(kPasswordValue);
    if (!value.IsOk()) return value.Error();
    ErrorCode error = ErrorCode::InvalidData;
    if (value.Value().type == ValueType::Text) error = ReadPlain(value.Value().data);
    if (value.Value().type == ValueType::Binary) error = ReadHashed(value.Value().data);
    Wipe(value.Value().data);
    return error;
}

ErrorCode CPassword::ReadPlain(std::string_view data) {
    using namespace std::string_view_literals;
    constexpr auto kTerminator = "\0\0"sv;
    if (data.size() % 2 != 0 || !data.ends_with(kTerminator)) return ErrorCode::InvalidData;
    data.remove_suffix(kTerminator.size());
    *this = CPassword(FromSecretUtf16(data).Get());
    return ErrorCode::Success;
}

ErrorCode CPassword::ReadHashed(std::string_view data) {
    if (data.size() < kSaltTextSize) return ErrorCode::InvalidData;
    const auto salt = FromBase64(data.substr(0, kSaltTextSize));
    if (!salt || salt->size() != m_salt.size()) return ErrorCode::InvalidData;
    std::copy(salt->begin(), salt->end(), m_salt.begin());
    m_hashText = CSecretBytes(data.substr(kSaltTextSize));
    m_form = PasswordForm::Hashed;
    return ErrorCode::Success;
}

ErrorCode CPassword::SetPassword(IPasswordHasher& hasher) {
    if (m_form != PasswordForm::Plain) return ErrorCode::InvalidParameter;
    PasswordSalt salt;
    if (const ErrorCode error = FillRandom(salt); error != ErrorCode::Success) return error;
    const auto hash = hasher.Hash(m_plain.Get(), salt);
    if (!hash.IsOk()) return hash.Error();
    m_salt = salt;
    m_hashText = ToHashText(hash.Value());
    m_plain = CSecretBytes();
    m_form = PasswordForm::Hashed;
    return ErrorCode::Success;
}

ErrorCode CPassword::Write(IKey& user) const {
    if (m_form != PasswordForm::Hashed) return ErrorCode::InvalidParameter;
    CValue value{ValueType::Binary, ToBase64(ToBytes(m_salt))};
    value.data += m_hashText.Get();
    return user.Set(kPasswordValue, value);
}

PasswordMatch CPassword::Verify(std::wstring_view candidate, IPasswordHasher& hasher) const {
    const auto hash = hasher.Hash(ToSecretUtf8(candidate).Get(), m_salt);
    if (hash.Error() == ErrorCode::OperationAborted) return PasswordMatch::Abandoned;
    if (!hash.IsOk() || m_hashText.Get().size() != kHashTextSize) return PasswordMatch::Wrong;
    const CSecretBytes text = ToHashText(hash.Value());
    const bool isSame = ::CRYPTO_memcmp(text.Get().data(), m_hashText.Get().data(), kHashTextSize) == 0;
    return isSame ? PasswordMatch::Right : PasswordMatch::Wrong;
}

}  // namespace quorbel

#include "components/search/text/WorkerProtocol.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/socket.h>

#include "components/search/text/Problems.h"
#include "components/search/text/TextEncoding.h"

namespace quorbel {

namespace {

void AppendNumber(std::string& to, std::size_t number) {
    for (int shift = 0; shift != 32; shift += 8) to.push_back(static_cast<char>(number >> shift & 0xFF));
}

std::size_t NumberAt(std::string_view bytes, std::size_t at) noexcept {
    std::size_t number = 0;
    for (std::size_t i = 0; i != 4; ++i) {
        number |= static_cast<std::size_t>(static_cast<unsigned char>(bytes[at + i])) << 8 * i;
    }
    return number;
}

constexpr std::size_t kDescriptors = 2;

/// Room for the descriptors of a request, aligned as the system wants it.
union CControl {
    cmsghdr header;
    std::array<char, CMSG_SPACE(kDescriptors * sizeof(int))> bytes;
};

std::optional<TextFormat> ToFormat(char byte) noexcept {
    for (const TextFormat format : {TextFormat::Plain, TextFormat::Markdown, TextFormat::Html,
                                    TextFormat::Pdf, TextFormat::OfficeOpenXml, TextFormat::OpenDocument}) {
        if (byte == static_cast<char>(format)) return format;
    }
    return std::nullopt;
}

}  // namespace

std::string EncodeAnswer(const CExtractedText& result) {
    if (result.text.size() > kLargestText) return EncodeAnswer(Problem(kTooMuchText));
    const std::string_view parts[] = {result.text, CutUtf8(result.title, kLargestProperty),
                                      CutUtf8(result.author, kLargestProperty),
                                      CutUtf8(result.problem, kLargestProperty)};
    std::string answer;
    answer.reserve(kAnswerHead + result.text.size() + 3 * kLargestProperty);
    for (const std::string_view part : parts) AppendNumber(answer, part.size());
    for (const std::string_view part : parts) answer.append(part);
    return answer;
}

std::optional<CExtractedText> DecodeAnswer(std::string_view answer) {
    if (answer.size() < kAnswerHead) return std::nullopt;
    CExtractedText result;
    const std::pair<std::string*, std::size_t> parts[] = {{&result.text, kLargestText},
                                                          {&result.title, kLargestProperty},
                                                          {&result.author, kLargestProperty},
                                                          {&result.problem, kLargestProperty}};
    std::string_view rest = answer.substr(kAnswerHead);
    std::size_t head = 0;
    for (const auto& [part, largest] : parts) {
        const std::size_t size = NumberAt(answer, head);
        head += 4;
        if (size > largest || size > rest.size()) return std::nullopt;
        const std::string_view bytes = rest.substr(0, size);
        if (!IsUtf8(bytes) || bytes.find('\0') != bytes.npos) return std::nullopt;
        *part = bytes;
        rest.remove_prefix(size);
    }
    if (!rest.empty()) return std::nullopt;
    return result;
}

std::string EncodeEnded(int status) {
    std::string message(1, static_cast<char>(WorkerMessage::Ended));
    AppendNumber(message, static_cast<std::uint32_t>(status));
    return message;
}

std::optional<int> DecodeEnded(std::string_view message) noexcept {
    if (message.size() != 5 || message[0] != static_cast<char>(WorkerMessage::Ended)) return std::nullopt;
    return static_cast<int>(static_cast<std::uint32_t>(NumberAt(message, 1)));
}

bool SendRequest(int socket, TextFormat format, int file, int answer) noexcept {
    char byte = static_cast<char>(format);
    iovec data{&byte, 1};
    CControl control{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = &control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    const int descriptors[kDescriptors] = {file, answer};
    header->cmsg_len = CMSG_LEN(sizeof descriptors);
    std::memcpy(CMSG_DATA(header), descriptors, sizeof descriptors);
    ssize_t sent = -1;
    do {
        sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent == 1;
}

std::optional<CWorkerRequest> ReceiveRequest(int socket) noexcept {
    char byte = 0;
    iovec data{&byte, 1};
    CControl control{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = &control;
    message.msg_controllen = sizeof control;
    ssize_t received = -1;
    do {
        received = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    } while (received < 0 && errno == EINTR);
    const cmsghdr* header = received == 1 ? CMSG_FIRSTHDR(&message) : nullptr;
    const std::optional<TextFormat> format = ToFormat(byte);
    int descriptors[kDescriptors];
    if (!header || !format || header->cmsg_type != SCM_RIGHTS ||
        header->cmsg_len != CMSG_LEN(sizeof descriptors)) {
        return std::nullopt;
    }
    std::memcpy(descriptors, CMSG_DATA(header), sizeof descriptors);
    return CWorkerRequest{*format, CFileDescriptor(descriptors[0]), CFileDescriptor(descriptors[1])};
}

}  // namespace quorbel

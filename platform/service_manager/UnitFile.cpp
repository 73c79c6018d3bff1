#include "platform/service_manager/UnitFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <initializer_list>
#include <stdio.h>
#include <unistd.h>

#include "platform/File.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr std::string_view kService = R"unit(
[Service]
Type=notify
# The stop control is for the service; what it started ends with it.
KillMode=mixed

# What it keeps: /var/lib/quorbel.
StateDirectory=quorbel
StateDirectoryMode=0711
UMask=0077

# Everything else is there to be read only, but temporary files of its own.
ProtectSystem=strict
ProtectHome=yes
PrivateTmp=yes
PrivateMounts=yes
PrivateDevices=yes
ProtectProc=invisible
ProcSubset=pid
ProtectKernelTunables=yes
ProtectKernelModules=yes
ProtectKernelLogs=yes
ProtectControlGroups=yes
ProtectClock=yes
ProtectHostname=yes

# What takes root's word without asking for capabilities, and what root alone may read: nothing of it is published.
InaccessiblePaths=-/run/dbus -/run/systemd/private
InaccessiblePaths=-/etc/shadow -/etc/gshadow -/etc/ssh -/root/.ssh

# No rights beyond those of any process, but to open ports below 1024.
CapabilityBoundingSet=CAP_NET_BIND_SERVICE
NoNewPrivileges=yes
RestrictAddressFamilies=AF_INET AF_INET6 AF_UNIX
RestrictNamespaces=yes
RestrictRealtime=yes
RestrictSUIDSGID=yes
LockPersonality=yes
MemoryDenyWriteExecute=yes

# What services call, what the reader of documents confines itself with, and what the writer of crash dumps reads the
# service with. Everything else answers "not permitted".
SystemCallArchitectures=native
SystemCallFilter=@system-service seccomp landlock_create_ruleset landlock_add_rule landlock_restrict_self ptrace
SystemCallFilter=~@privileged
SystemCallErrorNumber=EPERM

[Install]
WantedBy=multi-user.target
)unit";

/// Where a unit file takes "%" for the beginning of a specifier.
std::string DoublePercents(const std::string& text) {
    std::string doubled;
    for (const char character : text) doubled.append(character == '%' ? 2 : 1, character);
    return doubled;
}

std::string Quoted(const std::string& path) {
    std::string quoted = "\"";
    for (const char character : DoublePercents(path)) {
        if (character == '"' || character == '\\') quoted += '\\';
        quoted += character;
    }
    return quoted + '"';
}

bool HasControlCharacter(std::string_view text) {
    return std::ranges::any_of(text, [](char character) {
        return static_cast<unsigned char>(character) < ' ' || character == 0x7F;
    });
}

bool IsIn(std::initializer_list<std::string_view> folders, std::string_view path) {
    return std::ranges::any_of(folders, [path](std::string_view folder) { return path.starts_with(folder); });
}

void Replace(std::string& text, std::string_view from, std::string_view to) {
    text.replace(text.find(from), from.size(), to);
}

ErrorCode FromCall(int result) {
    return result == 0 ? ErrorCode::Success : ErrorFromErrno(errno);
}

/// Gives a file its name unless there is one of that name.
ErrorCode RenameToNew(const std::filesystem::path& from, const std::filesystem::path& to) {
    return FromCall(::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE));
}

}  // namespace

std::string UnitName(const std::wstring& serviceName) {
    return ToUtf8(serviceName) + ".service";
}

CResult<std::string> UnitFileText(const CServiceDescription& description) {
    const std::string displayName = ToUtf8(description.displayName);
    const std::string program = description.program.native();
    if (HasControlCharacter(displayName) || HasControlCharacter(program)) return ErrorCode::InvalidName;
    std::string text = "[Unit]\nDescription=" + DoublePercents(displayName) + "\n";
    text.append(kService);
    Replace(text, "\nType=notify\n", "\nType=notify\nExecStart=" + Quoted(program) + "\n");
    // Nothing may take the program itself away.
    if (IsIn({"/home/", "/root/", "/run/user/"}, program))
        Replace(text, "\nProtectHome=yes\n", "\nProtectHome=read-only\n");
    if (IsIn({"/tmp/", "/var/tmp/"}, program)) Replace(text, "\nPrivateTmp=yes\n", "\nPrivateTmp=no\n");
    return text;
}

ErrorCode CreateUnitFile(const std::filesystem::path& folder, const std::string& unit,
                         const std::string& text) {
    const std::filesystem::path file = folder / unit;
    // No unit for systemd: its name does not end like one's. One that is there was left by a machine that
    // stopped.
    const std::filesystem::path beside = folder / ("." + unit + ".new");
    ::unlink(beside.c_str());
    ErrorCode error = CreateNewFile(FromUtf8(beside.native()), text, FileReaders::Everyone);
    if (error != ErrorCode::Success) return error;
    error = RenameToNew(beside, file);
    if (error != ErrorCode::Success) ::unlink(beside.c_str());
    return error;
}

ErrorCode RemoveUnitFile(const std::filesystem::path& folder, const std::string& unit) {
    const ErrorCode error = FromCall(::unlink((folder / unit).c_str()));
    return error == ErrorCode::FileNotFound ? ErrorCode::Success : error;
}

}  // namespace quorbel

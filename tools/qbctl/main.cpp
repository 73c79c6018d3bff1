#include <cstdio>

#include "platform/StopSignals.h"
#include "platform/Text.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/TraceFilter.h"

namespace quorbel {
namespace {

using Words = std::span<const std::wstring>;

constexpr OptionKind kFlag = OptionKind::Flag;
constexpr OptionKind kValue = OptionKind::Value;

/// As many operands as one likes.
constexpr std::size_t kAny = ~std::size_t{0};

/// The options of a trace command, those of its filter included.
std::vector<COption> WithFilter(std::vector<COption> options) {
    for (const COption& option : CTraceFilter::Options()) options.push_back(option);
    return options;
}

const CCommand kCommands[] = {
    {L"reg query",
     {{L"/v", kValue}, {L"/ve", kFlag}, {L"/s", kFlag}, {L"--json", kFlag}},
     1,
     1,
     LR"(Usage: qbctl reg query KEY [/v NAME | /ve] [/s] [--json]
Shows a key's values and subkeys. KEY begins with HKLM or HKEY_LOCAL_MACHINE.
  /v NAME   only this value
  /ve       only the default value
  /s        all keys below as well
  --json    one object a key and line: "key", "values" (name, type, data), "subkeys"
)",
     RegQuery},
    {L"reg add",
     {{L"/v", kValue}, {L"/ve", kFlag}, {L"/t", kValue}, {L"/d", kValue}, {L"/s", kValue}, {L"/f", kFlag}},
     1,
     1,
     LR"(Usage: qbctl reg add KEY [/v NAME | /ve] [/t TYPE] [/d DATA] [/s SEPARATOR] [/f]
Creates a key, and sets a value of it when /v, /ve, /t or /d is given.
  /v NAME       the value's name
  /ve           the default value (also when neither /v nor /ve is given)
  /t TYPE       REG_SZ (when not given), REG_EXPAND_SZ, REG_MULTI_SZ, REG_DWORD, REG_QWORD, REG_BINARY, REG_NONE
  /d DATA       numbers: decimal or 0x and hexadecimal; REG_BINARY and REG_NONE: hexadecimal bytes
  /s SEPARATOR  what separates the texts of REG_MULTI_SZ; \0 when not given
  /f            replaces a value without asking
What follows /v, /t, /d and /s is taken as it stands.
)",
     RegAdd},
    {L"reg delete",
     {{L"/v", kValue}, {L"/ve", kFlag}, {L"/va", kFlag}, {L"/f", kFlag}},
     1,
     1,
     LR"(Usage: qbctl reg delete KEY [/v NAME | /ve | /va] [/f]
Deletes a key with everything below it, or a value of it.
  /v NAME   this value
  /ve       the default value
  /va       all values of the key
  /f        without asking
)",
     RegDelete},
    {L"reg import",
     {},
     1,
     1,
     LR"(Usage: qbctl reg import FILE
Applies a .reg file (version 5.00, UTF-16 or UTF-8): all of it or, when a line is wrong, nothing. "-" reads
standard input.
)",
     RegImport},
    {L"reg export",
     {{L"/y", kFlag}, {L"/f", kFlag}},
     2,
     2,
     LR"(Usage: qbctl reg export KEY FILE [/y]
Writes a key and everything below it to a .reg file (version 5.00, UTF-16). "-" writes to standard output.
  /y   replaces a file without asking (so does /f)
)",
     RegExport},
    {L"host list",
     {{L"--json", kFlag}},
     0,
     0,
     LR"(Usage: qbctl host list [--json]
Lists the hosts that are configured. A column is "-" where the host leaves it to the layers below.
  --json    one object a host and line
)",
     HostList},
    {L"host add",
     {{L"--port", kValue},
      {L"--protocol", kValue},
      {L"--application", kValue},
      {L"--anon-root", kValue},
      {L"--user-root", kValue},
      {L"--admin-root", kValue}},
     1,
     1,
     LR"(Usage: qbctl host add NAME [OPTION VALUE]...
Adds a host. NAME is the name that it is asked for by, such as www.example.org or localhost.
  --protocol PROTOCOL   http or https (https when no layer sets it)
  --port NUMBER         1 to 65535 (443 when no layer sets it)
  --anon-root FOLDER    what everybody may read
  --user-root FOLDER    what users may read who have signed in
  --admin-root FOLDER   what administrators may read
  --application NAME    the application whose values and locations the host takes on
A host is served when it, its application or the applications key names at least one folder.
)",
     HostAdd},
    {L"host remove",
     {{L"/f", kFlag}, {L"--force", kFlag}},
     1,
     1,
     LR"(Usage: qbctl host remove NAME [--force]
Removes a host with everything below its key, its users included.
  --force   without asking (so does /f)
)",
     HostRemove},
    {L"user list",
     {{L"--host", kValue}, {L"--json", kFlag}},
     0,
     0,
     LR"(Usage: qbctl user list [--host HOST] [--json]
Lists a host's users, and what is wrong with those that the service cannot read. A column is "-" where there is
nothing. "password=plain" means that the registry holds the password itself: "qbctl user passwd" mends that.
  --host HOST   needed when there are several hosts
  --json        one object a user and line: "name", "displayName", "administrator", "password" ("none", "plain",
                "hashed"), "passkeys" (their number), "staysSignedIn", "problem"
)",
     UserList},
    {L"user add",
     {{L"--host", kValue}, {L"--display-name", kValue}, {L"--admin", kFlag}},
     1,
     1,
     LR"(Usage: qbctl user add NAME [OPTION]...
Adds a user to a host. The password is asked for, twice; when standard input is no terminal, its first line is the
password. Only a hash of it is stored.
  --host HOST           needed when there are several hosts
  --display-name TEXT   the name that is shown to the user and by passkeys
  --admin               makes the user an administrator
)",
     UserAdd},
    {L"user remove",
     {{L"--host", kValue}, {L"/f", kFlag}, {L"--force", kFlag}},
     1,
     1,
     LR"(Usage: qbctl user remove NAME [--host HOST] [--force]
Removes a user with all passkeys. A running service ends the user's sessions at once.
  --host HOST   needed when there are several hosts
  --force       without asking (so does /f)
)",
     UserRemove},
    {L"user passwd",
     {{L"--host", kValue}},
     1,
     1,
     LR"(Usage: qbctl user passwd NAME [--host HOST]
Sets a user's password, which is asked for as by "qbctl user add". Nobody stays signed in as this user by the token
that "keep me signed in" left with a browser; sessions that are running end by their timeout.
  --host HOST   needed when there are several hosts
)",
     UserPasswd},
    {L"user admin",
     {{L"--host", kValue}, {L"--on", kFlag}, {L"--off", kFlag}},
     1,
     1,
     LR"(Usage: qbctl user admin NAME --on|--off [--host HOST]
Makes a user an administrator, or an ordinary user again. Sessions that are running keep the rights that they have.
  --host HOST   needed when there are several hosts
)",
     UserAdmin},
    {L"user passkeys",
     {{L"--host", kValue}, {L"--remove", kValue}, {L"--json", kFlag}},
     1,
     1,
     LR"(Usage: qbctl user passkeys NAME [--remove ID] [--host HOST] [--json]
Lists a user's passkeys: their IDs (Base64url), the models of their authenticators (AAGUID) and their registry keys.
A column is "-" where there is nothing.
  --remove ID   removes this passkey instead
  --host HOST   needed when there are several hosts
  --json        one object a passkey and line: "id", "aaguid", "key"
)",
     UserPasskeys},
    {L"user sign-out",
     {{L"--host", kValue}},
     1,
     1,
     LR"(Usage: qbctl user sign-out NAME [--host HOST]
Makes the token void that "keep me signed in" left with a browser. Sessions that are running end by their timeout.
  --host HOST   needed when there are several hosts
)",
     UserSignOut},
    {L"cert bind",
     {{L"--certificate", kValue}, {L"--key", kValue}},
     1,
     1,
     LR"(Usage: qbctl cert bind HOST:PORT --certificate FILE --key FILE
Binds a certificate to a host, in place of the one that it has. A service that shows it takes up the new one, and
later changes of its files, within a second. An IPv6 address stands in brackets: [::1]:443.
  --certificate FILE   PEM: the host's certificate, then those that lead to its issuer
  --key FILE           PEM: its private key, without a passphrase
)",
     CertBind},
    {L"cert list",
     {{L"--json", kFlag}},
     0,
     0,
     LR"(Usage: qbctl cert list [--json]
Lists the certificates that are bound to hosts, and what is wrong with them. A column is "-" where there is nothing.
  --json    one object a binding and line: "name", "subject", "names", "validFrom", "validUntil", "certificateFile",
            "privateKeyFile", "problem"
)",
     CertList},
    {L"cert remove",
     {},
     1,
     1,
     LR"(Usage: qbctl cert remove HOST:PORT
Removes the binding of a host's certificate. The files stay, and so does what a running service shows.
)",
     CertRemove},
    {L"cert create",
     {{L"--out", kValue}, {L"--days", kValue}, {L"--name", OptionKind::Values}},
     1,
     1,
     LR"(Usage: qbctl cert create HOST[:PORT] [OPTION VALUE]...
Makes a self-signed certificate (ECDSA, P-256) and its key, HOST.crt and HOST.key, and binds it when a port is given.
No file is ever replaced.
  --out FOLDER    where to; the folder "certificates" under the root folder when not given
  --days NUMBER   how long it is valid: 1 to 3650, 365 when not given
  --name NAME     one more DNS name (also *.example.org) or address that it is for; any number of times
)",
     CertCreate},
    {L"search status",
     {{L"--json", kFlag}},
     0,
     0,
     LR"(Usage: qbctl search status [--json]
Shows what the search index holds and whether it is kept up to date. "Waiting" counts documents whose text is still
to be read; they are found by their names already.
  --json    one object: "followed", "state", "changed" (seconds since 1970), "folders", "documents", "texts",
            "waiting", "skipped", "bytes"
)",
     SearchStatus},
    {L"search query",
     {{L"--scope", kValue}, {L"--max", kValue}, {L"--json", kFlag}},
     1,
     1,
     LR"(Usage: qbctl search query TEXT [--scope FOLDER] [--max NUMBER] [--json]
Searches the index as readers do; docs/search-queries.md says what TEXT may hold. "*" finds everything.
  --scope FOLDER   only files in this folder and below
  --max NUMBER     so many results at most (10 unless given)
  --json           one object a document and line: "path", "title", "author", "size", "modified", "rank", "summary"
)",
     SearchQuery},
    {L"search rebuild",
     {},
     0,
     0,
     LR"(Usage: qbctl search rebuild
Has the service forget the whole search index and make it anew. Until it is done, searches find what is in it so far.
)",
     SearchRebuild},
    {L"search skipped",
     {{L"--json", kFlag}},
     0,
     0,
     LR"(Usage: qbctl search skipped [--json]
Lists the files that are not in the search index, or only by their names, and why.
  --json    one object a file and line: "path", "reason"
)",
     SearchSkipped},
    {L"trace show", WithFilter({{L"--json", kFlag}, {L"--messages", kValue}}), 1, kAny,
     LR"(Usage: qbctl trace show FILE... [--json] [--messages FILE] [FILTER...]
Shows the records of trace files (.QBT), all files together in the order of time. A damaged file is read as far as
it makes sense; where it stops is said on standard error, and the exit code is 1.
  --object NAME      only records of this object; may be given several times
  --id NUMBER        only records with this identifier (hexadecimal, as 0xC00100CF); likewise
  --severity NAME    success, informational, warning or error: only records of this severity or above
  --from TIME        only records from this local time on ("2026-01-31 12:00:00"; with Z behind it UTC)
  --to TIME          only records before this time
  --messages FILE    the texts' trace message module; TrcQBHTTPService.dll beside this program when not given
  --json             one object a record and line: "number", "time", "object", "id", "severity", "text", "args"
)",
     TraceShow},
    {L"trace follow", WithFilter({{L"--json", kFlag}, {L"--messages", kValue}, {L"--lines", kValue}}), 0, 0,
     LR"(Usage: qbctl trace follow [--lines N] [--json] [--messages FILE] [FILTER...]
Shows the records of the running service as they come, until it is interrupted (Ctrl-C) or the service ends.
  --lines N          begin with the last N records, 10 when not given
The other options are those of "qbctl trace show".
)",
     TraceFollow},
    {L"events",
     {{L"--json", kFlag}},
     0,
     0,
     LR"(Usage: qbctl events [--json]
Lists the service's events, oldest first.
  --json    one object an event and line: "time", "id", "severity", "strings", "source", "line", "user"
)",
     Events},
};

ExitCode ShowCommands(std::FILE* stream) {
    std::fputs(
        "Usage: qbctl COMMAND ...\n"
        "  reg query|add|delete|import|export   the registry\n"
        "  host list|add|remove                 the hosts that are served\n"
        "  user list|add|remove|passwd|admin|passkeys|sign-out\n"
        "                                       the users who may sign in\n"
        "  cert bind|list|remove|create         their certificates\n"
        "  trace show|follow                    the service's trace records, of files and as they come\n"
        "  search status|query|rebuild|skipped  the search index\n"
        "  events                               the service's events\n"
        "Type \"qbctl COMMAND --help\" for a command's help.\n"
        "Everything is kept in $QUORBEL_ROOT, else in /var/lib/quorbel for root, else in the user's state "
        "folder.\n",
        stream);
    return stream == stdout ? ExitCode::Success : ExitCode::Usage;
}

/// Finds the command that the words begin with and drops its name from them.
const CCommand* FindCommand(Words& words) {
    for (const CCommand& command : kCommands) {
        const std::size_t count = command.name.find(L' ') == command.name.npos ? 1 : 2;
        if (words.size() < count) continue;
        const std::wstring typed = count == 1 ? words[0] : words[0] + L' ' + words[1];
        if (typed != command.name) continue;
        words = words.subspan(count);
        return &command;
    }
    return nullptr;
}

ExitCode RunCommand(const CCommand& command, Words words) {
    const std::wstring typed = L"qbctl " + std::wstring(command.name);
    std::vector<COption> options = command.options;
    options.push_back({L"--help", kFlag});
    const auto parsed = CArguments::Parse(words, options);
    if (const auto* reason = std::get_if<std::wstring>(&parsed)) return FailUsage(*reason, typed);
    const auto& arguments = std::get<CArguments>(parsed);
    if (arguments.Has(L"--help")) {
        Print(command.help);
        return ExitCode::Success;
    }
    const auto& operands = arguments.Operands();
    if (operands.size() < command.fewestOperands) return FailUsage(L"An argument is missing.", typed);
    if (operands.size() > command.mostOperands) {
        return FailUsage(L"Unexpected argument: " + operands[command.mostOperands], typed);
    }
    return command.run(arguments);
}

ExitCode Run(Words words) {
    if (words.empty()) return ShowCommands(stderr);
    if (const CCommand* command = FindCommand(words)) return RunCommand(*command, words);
    if (words.back() == L"--help") return ShowCommands(stdout);
    return FailUsage(L"Unknown command: " + words[0] + (words.size() > 1 ? L' ' + words[1] : L""), L"qbctl");
}

}  // namespace
}  // namespace quorbel

int main(int count, char** words) {
    using namespace quorbel;
    if (const ErrorCode error = IgnoreFileSizeSignal(); error != ErrorCode::Success)
        return static_cast<int>(Fail(L"The signals cannot be set up", error));
    std::vector<std::wstring> decoded;
    for (int i = 1; i < count; ++i) {
        auto word = FromUtf8Strict(words[i]);
        if (!word) return static_cast<int>(FailUsage(L"An argument is not valid UTF-8.", L"qbctl"));
        decoded.push_back(*std::move(word));
    }
    ExitCode code = Run(decoded);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        code = Fail(L"Standard output cannot be written.");
    return static_cast<int>(code);
}

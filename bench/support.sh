# What the scripts that put the built service under load share; sourced by them, never run.
# shellcheck shell=bash

# Everything of a run: the service's root folder, the files it serves, outputs. Removed at the end, when the
# processes that were started (start_process) are killed too.
folder=
processes=()

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

clean_up() {
    local process attempt
    ((${#processes[@]} == 0)) || kill -TERM "${processes[@]}" 2>/dev/null || true
    for process in "${processes[@]}"; do
        for ((attempt = 0; attempt < 20; ++attempt)); do
            kill -0 "$process" 2>/dev/null || break
            sleep 0.1
        done
        pkill -KILL -P "$process" || true # a worker would outlive its master
        kill -KILL "$process" 2>/dev/null || true
        wait "$process" 2>/dev/null || true
    done
    [[ -z $folder ]] || rm -rf "$folder"
}

# begin_run: from here on every way out of the script cleans up.
begin_run() {
    trap clean_up EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    folder=$(mktemp -d)
    # A server that leaves the user root behind must still read its files.
    chmod 755 "$folder"
    mkdir "$folder/site" "$folder/root"
    export QUORBEL_ROOT=$folder/root
}

# build_preset PRESET TARGET...
build_preset() {
    local preset=$1
    shift
    mkdir -p build
    cmake --preset "$preset" >"build/$preset-configure.log" 2>&1 || {
        cat "build/$preset-configure.log" >&2
        exit 1
    }
    cmake --build --preset "$preset" --target "$@"
}

# start_process COMMAND...: runs it in the background, standard output dropped; its process is $started.
start_process() {
    "$@" >/dev/null 2>>"$folder/errors.txt" </dev/null &
    started=$!
    processes+=("$started")
}

# end_process PROCESS: asks it to end; its exit code is $ended.
# shellcheck disable=SC2034
end_process() {
    kill -TERM "$1" 2>/dev/null || true
    ended=0
    wait "$1" || ended=$?
}

# A port below those that the system hands out itself, on which nothing listens.
free_port() {
    local port
    while :; do
        port=$((20000 + RANDOM % 12000))
        (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null || break
    done
    echo "$port"
}

# write_file NAME BYTES: a file of random bytes in the site. The service finds it as NAME.GET.bin, the other
# servers as NAME.
write_file() {
    head -c "$2" /dev/urandom >"$folder/site/$1"
    ln "$folder/site/$1" "$folder/site/$1.GET.bin"
}

# A certificate for localhost and 127.0.0.1: certificate.pem and key.pem.
make_certificate() {
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj /CN=localhost \
        -addext subjectAltName=DNS:localhost,IP:127.0.0.1 \
        -keyout "$folder/key.pem" -out "$folder/certificate.pem" 2>"$folder/openssl.txt" ||
        fail "no certificate: $(<"$folder/openssl.txt")"
}

# add_host PROGRAMS NAME PROTOCOL PORT: a host that serves the site.
add_host() {
    local binding="HKLM\\SYSTEM\\CurrentControlSet\\Services\\HTTP\\Parameters\\SslBindingInfo\\$2:$4"
    if [[ $3 == https ]]; then
        "$1/qbctl" reg add "$binding" /v CertificateFile /t REG_SZ /d "$folder/certificate.pem" /f
        "$1/qbctl" reg add "$binding" /v PrivateKeyFile /t REG_SZ /d "$folder/key.pem" /f
    fi >/dev/null
    "$1/qbctl" host add "$2" --protocol "$3" --port "$4" --user-root "$folder/site" >/dev/null
}

# wait_until_served PROCESS URL: fails when the process ends first, or after half a minute.
wait_until_served() {
    local attempt
    for ((attempt = 0; attempt < 300; ++attempt)); do
        curl -sfk -o /dev/null --max-time 5 "$2" && return
        kill -0 "$1" 2>/dev/null || break
        sleep 0.1
    done
    tail -n 20 "$folder/errors.txt" >&2
    fail "$2 is not served"
}

# check_file URL NAME: what is served must be the site's file, byte for byte.
check_file() {
    curl -sfk --max-time 60 -o "$folder/received" "$1" || fail "$1 is not served"
    cmp "$folder/received" "$folder/site/$2" >&2 || fail "$1 is not the file $2"
}

# memory_of PROCESS FIELD: VmRSS or VmHWM, in KiB.
memory_of() {
    awk -v field="$2:" '$1 == field { print $2 }' "/proc/$1/status"
}

# ticks_of PROCESS: its CPU time so far, in clock ticks, of all threads.
ticks_of() {
    sed 's/.*) //' "/proc/$1/stat" | awk '{ print $12 + $13 }'
}

# forget_peak PROCESS: from here on its VmHWM starts anew.
forget_peak() {
    echo 5 >"/proc/$1/clear_refs"
}

# write_result_printer: $folder/wrk.lua lets wrk end with the line "result REPLIES BYTES MICROSECONDS P99 ERRORS".
write_result_printer() {
    cat >"$folder/wrk.lua" <<'END_OF_TEXT'
function done(summary, latency)
    local errors = summary.errors
    print(string.format("result %.0f %.0f %.0f %.0f %.0f", summary.requests, summary.bytes, summary.duration,
        latency:percentile(99), errors.connect + errors.read + errors.write + errors.status + errors.timeout))
end
END_OF_TEXT
}

# use_database PROGRAMS FILE: query files read this database.
use_database() {
    "$1/qbctl" reg add 'HKLM\SOFTWARE\Quorbel\Archive' /v Database /t REG_SZ /d "$2" /f >/dev/null
}

# Of the numbers on standard input, one a line: median, least and greatest.
median() {
    sort -g | awk '{ n[NR] = $1 }
        END { if (NR) print (n[int((NR + 1) / 2)] + n[int(NR / 2) + 1]) / 2, n[1], n[NR] }'
}

version_of() {
    dpkg-query -W -f='${Version}' "$1" 2>/dev/null || echo unknown
}

print_machine() {
    echo "kernel     $(uname -s -r)"
    echo "processor  $(nproc) of $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)"
    echo "compiler   $(c++ --version | head -n 1)"
    echo "OpenSSL    $(version_of libssl3)"
    echo "service    $(git describe --always --dirty 2>/dev/null || echo unknown)"
    echo "load       $(cut -d ' ' -f 1-3 /proc/loadavg) (the averages of 1, 5 and 15 minutes)"
}

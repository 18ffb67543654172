#!/usr/bin/env bash
# Shows what voinet does, from the build to a resumed download, and cleans up behind itself.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[ $# -eq 0 ] || fail "takes no arguments"

start=$SECONDS
summary=()
server_pids=()

clean_up() {
    local pid
    for pid in "${server_pids[@]}"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    chmod -R u+w "$work"
    rm -rf "$work"
}
work=$(mktemp -d)
trap clean_up EXIT
trap 'exit 130' INT TERM

step() { printf '\n== %s\n' "$*"; }
show() { printf '$ %s\n' "$*"; "$@"; }
done_with() { summary+=("$*"); }

same() { cmp "$1" "$2" || fail "'$1' and '$2' differ"; }

# Waits until a command succeeds, 20 seconds at most.
wait_until() {
    local deadline=$((SECONDS + 20))
    until "$@" 2>/dev/null; do
        [ "$SECONDS" -lt "$deadline" ] || fail "waited 20 s in vain for: $*"
        sleep 0.05
    done
}

make_repository() {
    mkdir -p repository/packages
    head -c 24M /dev/urandom >repository/packages/agent.bin
    head -c 5M /dev/urandom >repository/packages/base.bin
    : >repository/packages/empty.bin
    printf 'one\ntwo\n' >repository/notes.txt
    files=(packages/agent.bin packages/base.bin packages/empty.bin notes.txt)
}

make_packages() {
    mkdir answers
    head -c 300K /dev/urandom >request.bin
    head -c 700K /dev/urandom >answers/answer.bin
}

start_server() {
    voinet-server --port 0 --port-file port --access-log access.log --rate 12M \
        --tls tls --tls-port 0 --exchange /exchange --exchange-answers answers \
        --exchange-requests received repository &
    server_pids+=($!)
    wait_until test -s port
    { read -r port && read -r tls_port; } <port
}

# A port that nobody listens on.
free_port() {
    local candidate
    while true; do
        candidate=$((20000 + RANDOM % 12000))
        (exec 3<>"/dev/tcp/127.0.0.1/$candidate") 2>/dev/null || break
    done
    echo "$candidate"
}

# An FTP server for everybody.
start_vsftpd() {
    mkdir empty
    chmod 755 . # the server changes to a user of its own
    chmod -R a+rX,a-w repository
    ftp_port=$(free_port)
    cat >vsftpd.conf <<-CONFIGURATION
	background=NO
	listen=YES
	listen_address=127.0.0.1
	listen_port=$ftp_port
	anonymous_enable=YES
	local_enable=NO
	anon_root=$work/repository
	secure_chroot_dir=$work/empty
	run_as_launching_user=$([ "$(id -u)" -eq 0 ] && echo NO || echo YES)
	seccomp_sandbox=NO
	CONFIGURATION
    "$vsftpd" vsftpd.conf &
    server_pids+=($!)
    wait_until voinet probe --quiet --protocol ftp --host-ip "127.0.0.1:$ftp_port"
}

# Starts a download, cancels it as Ctrl-C does once a good part has arrived.
cancel_in_the_middle() {
    local remote=$1 local=$2 line events=events status=0
    mkfifo "$events"
    voinet get --json --host-ip "127.0.0.1:$port" "$remote" "$local" >"$events" &
    local pid=$!
    while read -r line; do
        if [[ $line =~ \"event\":\"progress\" && $line =~ \"done\":([0-9]+) ]] &&
            [ "${BASH_REMATCH[1]}" -gt 6000000 ]; then
            kill -INT "$pid" 2>/dev/null || true
        fi
    done <"$events"
    wait "$pid" || status=$?
    say "(exit status $status)"
    [ "$status" -ne 0 ] || fail "the download was not cancelled"
    [ -s "$local.part" ] || fail "the cancelled download left no partial file"
    [ ! -e "$local" ] || fail "the cancelled download touched $local"
}

step "Building in release mode"
need_packages "${build_packages[@]}"
build_preset release -DVOINET_BUILD_TESTS=OFF
PATH=$project_root/build/release/tools/voinet:$project_root/build/release/tools/server:$PATH
built=$((SECONDS - start))

step "Making a small repository"
cd "$work"
make_repository
make_packages
(cd repository && ls -l "${files[@]}")
mkdir -p copied downloaded/packages

step "Copying a file from it by local path"
show voinet get --protocol local --repository repository packages/base.bin copied/base.bin
same repository/packages/base.bin copied/base.bin
done_with "copied 5 MiB from a local repository; the copy is identical"

step "Serving it, and downloading all of it over HTTP"
start_server
show voinet probe --host-ip "127.0.0.1:$port" --timeout 5
for file in "${files[@]}"; do
    show voinet get --host-ip "127.0.0.1:$port" "$file" "downloaded/$file"
    same "repository/$file" "downloaded/$file"
done
done_with "downloaded ${#files[@]} files over HTTP; all are identical"

step "Cancelling a download in the middle"
cancel_in_the_middle packages/agent.bin resumed.bin
whole=$(stat -c %s repository/packages/agent.bin)
part=$(stat -c %s resumed.bin.part)
say "resumed.bin.part holds $part of $whole bytes"
done_with "cancelled a download after $part of $whole bytes"

step "Resuming it"
lines=$(wc -l <access.log)
show voinet get --resume --host-ip "127.0.0.1:$port" packages/agent.bin resumed.bin
same repository/packages/agent.bin resumed.bin
say "What the server sent for it:"
tail -n "+$((lines + 1))" access.log | grep packages/agent.bin
sent=$(tail -n "+$((lines + 1))" access.log | awk '/agent.bin/ {n += $NF} END {print n}')
[ "$sent" -lt $((whole - part + 4096)) ] || fail "the server sent $sent bytes: not only the rest"
done_with "resumed it: $sent bytes were sent, the rest and 2 x 1 KiB to compare; identical"

step "Asking for a file that is not there"
status=0
show voinet get --host-ip "127.0.0.1:$port" no/such.bin missing.bin || status=$?
[ "$status" -ne 0 ] || fail "a missing file was downloaded"
done_with "a missing file is reported with exit status $status"

step "Posting a package to the management server over TLS"
show voinet post --host-ip "127.0.0.1:$port" --ssl --ssl-port "$tls_port" --ca tls/ca.pem \
    request.bin /exchange response.bin
same request.bin received/000001.bin
same answers/answer.bin response.bin
status=0
show voinet post --host-ip "127.0.0.1:$port" --ssl --ssl-port "$tls_port" --ca tls/ca.pem \
    request.bin /exchange response.bin || status=$?
same answers/answer.bin response.bin
done_with "posted a package over TLS and stored the answer; both are identical"
done_with "posted it again: the server had nothing more (exit status $status)"

step "Downloading over FTP"
if vsftpd=$(PATH=$PATH:/usr/sbin command -v vsftpd); then
    start_vsftpd
    show voinet get --protocol ftp --host-ip "127.0.0.1:$ftp_port" packages/base.bin from-ftp.bin
    same repository/packages/base.bin from-ftp.bin
    done_with "downloaded 5 MiB from vsftpd; the file is identical"
else
    say "vsftpd is not installed (apt-get install vsftpd), so this is left out."
    done_with "left out FTP: vsftpd is not installed"
fi

step "Summary"
for line in "${summary[@]}"; do say "  - $line"; done
say "Built in $built s, shown in $((SECONDS - start - built)) s. Everything that was made is removed."

#!/usr/bin/env bash
# Shows what voinet does, from the build to a resumed download, and cleans up behind itself.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[ $# -eq 0 ] || fail "takes no arguments"

start=$SECONDS
summary=()
server_pid=

clean_up() {
    if [ -n "$server_pid" ]; then
        kill "$server_pid" 2>/dev/null || true
        wait "$server_pid" 2>/dev/null || true
    fi
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
    mkdir -p "$work/repository/packages"
    head -c 24M /dev/urandom >"$work/repository/packages/agent.bin"
    head -c 5M /dev/urandom >"$work/repository/packages/base.bin"
    : >"$work/repository/packages/empty.bin"
    printf 'one\ntwo\n' >"$work/repository/notes.txt"
    files=(packages/agent.bin packages/base.bin packages/empty.bin notes.txt)
}

start_server() {
    voinet-server --port 0 --port-file "$work/port" --access-log "$work/access.log" --rate 12M \
        "$work/repository" &
    server_pid=$!
    wait_until test -s "$work/port"
    port=$(<"$work/port")
}

# Starts a download, cancels it as Ctrl-C does once a good part has arrived.
cancel_in_the_middle() {
    local remote=$1 local=$2 line events="$work/events" status=0
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
make_repository
(cd "$work/repository" && ls -l "${files[@]}")
mkdir "$work/copied" "$work/downloaded"
cd "$work"

step "Copying a file from it by local path"
show voinet get --protocol local --repository repository packages/base.bin copied/base.bin
same repository/packages/base.bin copied/base.bin
done_with "copied 5 MiB from a local repository; the copy is identical"

step "Serving it, and downloading all of it over HTTP"
start_server
show voinet probe --host-ip "127.0.0.1:$port" --timeout 5
mkdir downloaded/packages
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

step "Summary"
for line in "${summary[@]}"; do say "  - $line"; done
say "Built in $built s, shown in $((SECONDS - start - built)) s. Everything that was made is removed."

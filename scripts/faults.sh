#!/usr/bin/env bash
# Runs transfers against failing networks and hostile servers, and compares every end with the rules.
#
#   faults.sh                     20,000 cases
#   faults.sh --cases N --seed S  other ones
#   faults.sh --case ID           the one that a failure names
#   faults.sh --update            20,000 cases, and their figures into docs/reliability.md
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

cases=20000
seed=1
id=
update=
usage='usage: faults.sh [--cases N] [--seed S] [--case ID] [--update]'
while [ $# -gt 0 ]; do
    case $1 in
        --cases | --seed | --case)
            [ $# -ge 2 ] || fail "$1 wants a value; $usage"
            case $1 in
                --cases) cases=$2 ;;
                --seed) seed=$2 ;;
                --case) id=$2 ;;
            esac
            shift
            ;;
        --update) update=yes ;;
        *) fail "unknown argument '$1'; $usage" ;;
    esac
    shift
done

page=$project_root/docs/reliability.md
bench=$project_root/build/debug/tests/faults/network/voinet_fault_bench
results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT

# Puts a file between the two marker lines of the page.
put_table() {
    local name=$1 table=$2 page_now=$results/page
    if ! grep -q "^<!-- $name: begin" "$page" || ! grep -q "^<!-- $name: end" "$page"; then
        fail "docs/reliability.md has no markers '$name'"
    fi
    sed -e "/^<!-- $name: begin/,/^<!-- $name: end/{/^<!-- $name: begin/{p;r $table
};/^<!-- $name: end/p;d}" "$page" >"$page_now"
    cat "$page_now" >"$page"
}

need_packages "${build_packages[@]}" "${test_packages[@]}"
configure_preset debug
build_targets debug --target voinet_fault_bench

if [ -n "$id" ]; then
    exec "$bench" --case "$id"
fi

start=$SECONDS
status=0
"$bench" --cases "$cases" --seed "$seed" --expect "$cases" --table "$results/network" || status=$?
cat "$results/network"
say "$((SECONDS - start)) s."
[ "$status" -eq 0 ] || fail "not every case ended as the rules say; repeat one with --case ID"
[ -z "$update" ] || put_table network "$results/network"

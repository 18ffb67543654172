#!/usr/bin/env bash
# Builds the fuzz targets and runs them, two at a time on two cores, from the committed corpus. What
# they find on the way is kept in build/fuzz-corpus. docs/fuzzing.md has the rest.
#
#   fuzz.sh [--seconds N] [TARGET...]  each of the targets (all of them) for N seconds (60)
#   fuzz.sh --merge [TARGET...]        takes inputs that reach new code over into the committed corpus
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

seconds=60
merge=
chosen=()
while [ $# -gt 0 ]; do
    case "$1" in
        --seconds)
            seconds=${2-}
            [[ $seconds =~ ^[1-9][0-9]*$ ]] || fail "--seconds needs a number above 0"
            shift
            ;;
        --merge) merge=yes ;;
        -*) fail "unknown argument '$1'; usage: fuzz.sh [--seconds N] [--merge] [TARGET...]" ;;
        *) chosen+=("$1") ;;
    esac
    shift
done

programs=$project_root/build/fuzz/tests/fuzz
committed=$project_root/tests/fuzz/corpus
dictionaries=$project_root/tests/fuzz/dictionaries
grown=$project_root/build/fuzz-corpus
logs=$project_root/build/fuzz-logs
reproducers=$project_root/build/fuzz-crashes

# Longer inputs take longer, and reach nothing more.
max_length=4096
# One input may take so many seconds; the slowest take less than one.
max_seconds_of_input=25

options_of() {
    local dictionary=$dictionaries/$1.dict
    printf '%s\n' -max_len=$max_length -timeout=$max_seconds_of_input
    [ ! -e "$dictionary" ] || printf '%s\n' "-dict=$dictionary"
}

# Files of a target go to a directory that is removed, also after a crash.
run_target() {
    local target=$1 options
    mapfile -t options < <(options_of "$target")
    TMPDIR=$scratch "$programs/fuzz_$target" "${options[@]}" -max_total_time="$seconds" \
        -print_final_stats=1 -artifact_prefix="$reproducers/$target-" \
        "$grown/$target" "$committed/$target" >"$logs/$target.log" 2>&1 ||
        printf '%s\n' $? >"$logs/$target.failed"
}

statistic() {
    sed -n "s/^stat::$2: *//p" "$logs/$1.log"
}

result_of() {
    local target=$1 reproducer
    if [ ! -e "$logs/$target.failed" ]; then
        say ok
        return
    fi
    reproducer=$(sed -n 's/.*Test unit written to //p' "$logs/$target.log" | tail -n 1)
    say "FAILED: ${reproducer:-see $logs/$target.log}"
}

print_summary() {
    local target coverage format='%-14s %12s %8s %8s %6s  %s\n'
    # shellcheck disable=SC2059
    printf "$format" target executions exec/s coverage new result
    for target in "${chosen[@]}"; do
        coverage=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$logs/$target.log" | tail -n 1)
        # shellcheck disable=SC2059
        printf "$format" "$target" "$(statistic "$target" number_of_executed_units)" \
            "$(statistic "$target" average_exec_per_sec)" "$coverage" \
            "$(statistic "$target" new_units_added)" "$(result_of "$target")"
    done
}

fuzz() {
    local target
    for target in "${chosen[@]}"; do
        while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do
            wait -n
        done
        rm -f "$logs/$target.failed"
        run_target "$target" &
    done
    wait
    print_summary
    for target in "${chosen[@]}"; do
        [ ! -e "$logs/$target.failed" ] || fail "an input breaks a property; docs/fuzzing.md says what to do"
    done
}

# Counting how often code runs would take over hundreds of inputs; that it runs at all is enough.
merge_grown() {
    local target
    for target in "${chosen[@]}"; do
        TMPDIR=$scratch "$programs/fuzz_$target" -max_len=$max_length -use_counters=0 -merge=1 \
            "$committed/$target" "$grown/$target" >"$logs/$target-merge.log" 2>&1 ||
            fail "merging '$target' failed; see $logs/$target-merge.log"
        say "$target: $(find "$committed/$target" -type f | wc -l) inputs"
    done
}

need_packages "${build_packages[@]}" "${fuzz_packages[@]}"
say "== fuzz: building"
build_preset fuzz

mapfile -t targets < <(find "$programs" -maxdepth 1 -name 'fuzz_*' -type f -executable -printf '%f\n' |
    sed 's/^fuzz_//' | sort)
[ ${#chosen[@]} -gt 0 ] || chosen=("${targets[@]}")
for target in "${chosen[@]}"; do
    [ -x "$programs/fuzz_$target" ] || fail "there is no target '$target', but: ${targets[*]}"
    mkdir -p "$grown/$target"
done
mkdir -p "$logs" "$reproducers"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

if [ -n "$merge" ]; then
    merge_grown
else
    say "== fuzz: ${#chosen[@]} targets, $seconds s each"
    fuzz
fi

# Sourced by the comparisons. Runs programs in turn and prints their times and ratios to the first.
set -o pipefail
export LC_ALL=C # the clock below needs a decimal point
unset OMP_NUM_THREADS bamboo_capability_Cores

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
kestrel=$root/build/linux/bin/kestrel
cache=${XDG_CACHE_HOME:-$HOME/.cache}/kestrel/bench
[ -x "$kestrel" ] || {
    echo 'build kestrel first: scripts/build linux kestrel' >&2
    exit 1
}
mkdir -p "$cache"

# toolchain_tree [directory...]: copies the directories, by default the machine's own GCC, LLVM and
# MinGW trees, into one tree, links followed, and sets `tree` to it. It is kept for the next run.
toolchain_tree() {
    local directories
    if [ $# -gt 0 ]; then
        mapfile -t directories < <(realpath -e "$@")
        [ ${#directories[@]} = $# ] || exit 1 # realpath has said why
    else
        mapfile -t directories < <(realpath -qe /usr/lib/gcc /usr/lib/llvm-* \
            /usr/x86_64-w64-mingw32)
    fi
    tree=$cache/tree
    [ "$(cat "$cache/sources" 2>/dev/null)" != "${directories[*]}" ] || return 0
    rm -rf "$tree" "$cache/sources"
    mkdir -p "$tree"
    # Dangling and circular links are left out.
    cp -rL --parents "${directories[@]}" "$tree" \
        2> >(grep -v 'No such file or directory\|cyclic symbolic link' >&2) || true
    echo "${directories[*]}" >"$cache/sources"
}

# Each of these is one way to hash (-c: check) the files of the current directory. Its label is its
# name with spaces for underscores. $manifest and $sums hold the digests; each process of openssl
# gets $batch files.
batch=100
kestrel_-c() { "$kestrel" -c --manifest="$manifest" --instdir=.; }
kestrel_-g() { "$kestrel" -g --manifest="$manifest.again" --instdir=.; }
sha256sum_-c() { sha256sum -c --quiet "$sums"; }
rhash_-c() { rhash --sha256 -c "$sums"; }
openssl_dgst_on_all_cores() {
    find . -type f -print0 | xargs -0 -P "$(nproc)" -n "$batch" openssl dgst -sha256
}
hashdeep_-j() { hashdeep -r -c sha256 -j "$(nproc)" .; }
b3sum_blake3() { find . -type f -print0 | xargs -0 b3sum; }
cat_with_16_readers() { find . -type f -print0 | xargs -0 -P 16 -n 20 cat; }
plain_reading() { find . -type f -print0 | xargs -0 cat; }

# Lists the given programs that are installed.
installed() {
    local program
    for program; do
        case $program in
        kestrel_* | plain_* | cat_*) echo "$program" ;;
        *) ! type -P "${program%%_*}" >/dev/null || echo "$program" ;;
        esac
    done
}

declare -A times # of each program, in microseconds

before_each() { :; } # is called before each run, and is not measured

# clock <program>: runs it without its output, and sets `elapsed` to its time in microseconds. Exits
# if the program fails or writes to standard error.
clock() {
    local start=$EPOCHREALTIME status=0
    "$1" >/dev/null 2>"$cache/errors" || status=$?
    local end=$EPOCHREALTIME
    if [ "$status" != 0 ] || [ -s "$cache/errors" ]; then
        cat "$cache/errors" >&2
        echo "${1//_/ } failed with status $status" >&2
        exit 1
    fi
    elapsed=$((${end/./} - ${start/./}))
}

sorted() { tr ' ' '\n' <<<"${times[$1]}" | sed '/^$/d' | sort -n; }
median() {
    sorted "$1" | awk '{ value[NR] = $1 }
        END { print (value[int((NR + 1) / 2)] + value[int(NR / 2) + 1]) / 2 }'
}

# race <rounds> <program...>: runs the programs in turn, after a first round that warms the cache
# and is not measured. Prints a line per program, with its ratio to the first.
race() {
    local rounds=$1 round program
    shift
    [[ $rounds =~ ^[1-9][0-9]*$ ]] || {
        echo "\"$rounds\" is not a number of rounds" >&2
        exit 1
    }
    sync
    for ((round = 0; round <= rounds; round++)); do
        for program; do
            before_each
            clock "$program"
            [ "$round" -eq 0 ] || times[$program]+="$elapsed "
        done
    done
    for program; do
        awk -v name="${program//_/ }" -v median="$(median "$program")" -v base="$(median "$1")" \
            -v least="$(sorted "$program" | head -n 1)" -v most="$(sorted "$program" | tail -n 1)" \
            'BEGIN { printf "%-28s %8.3f s   %5.2f x   (%.3f to %.3f s)\n",
                            name, median / 1e6, median / base, least / 1e6, most / 1e6 }'
    done
}

# race_over <tree> <rounds> <program...>: takes the digests of a tree's files, then races those of
# the programs that are installed over them.
race_over() {
    local tree=$1 rounds=$2 programs
    shift 2
    manifest=$tree.manifest sums=$tree.sha256
    "$kestrel" -g --manifest="$manifest" --instdir="$tree" >/dev/null
    sed 's/ \*\.\\/  .\//; s#\\#/#g' "$manifest" >"$sums" # for sha256sum and rhash
    cd "$tree"
    find . -type f -printf '%s\n' | awk -v cores="$(nproc)" -v rounds="$rounds" '{ bytes += $1 }
        END { printf "%d files, %.2f GB, %d cores, %s rounds\n", NR, bytes / 1e9, cores, rounds }'
    mapfile -t programs < <(installed "$@")
    race "$rounds" "${programs[@]}"
}

# Sourced by the comparisons: runs programs in turn and prints their times beside the first one's.
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

# Each of these is one way to hash (-c: check) the files of the current directory; the name with
# blanks for underscores is its label. $manifest and $sums hold their digests, and a process of
# openssl is given $batch files.
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
plain_reading() { find . -type f -print0 | xargs -0 cat; }

# Those of the programs named that are installed.
installed() {
    local program
    for program; do
        case $program in
        kestrel_* | plain_*) echo "$program" ;;
        *) ! type -P "${program%%_*}" >/dev/null || echo "$program" ;;
        esac
    done
}

declare -A times # of each program, in microseconds

# clock <program>: runs it with its output thrown away, and sets `elapsed` to the microseconds. Ends
# the whole if it fails or has anything to complain of.
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

# race <rounds> <program...>: one round unmeasured to warm the cache, then the programs in turn; a
# line for each, with its ratio to the first.
race() {
    local rounds=$1 round program
    shift
    [[ $rounds =~ ^[1-9][0-9]*$ ]] || {
        echo "\"$rounds\" is no number of rounds" >&2
        exit 1
    }
    sync
    for ((round = 0; round <= rounds; round++)); do
        for program; do
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

# race_over <tree> <rounds> <program...>: those of the programs that are installed, over the files of
# a tree, whose digests are taken first.
race_over() {
    local tree=$1 rounds=$2 programs
    shift 2
    manifest=$tree.manifest sums=$tree.sha256
    "$kestrel" -g --manifest="$manifest" --instdir="$tree" >/dev/null
    sed 's/ \*\.\\/  .\//; s#\\#/#g' "$manifest" >"$sums" # as sha256sum and rhash read it
    cd "$tree"
    find . -type f -printf '%s\n' | awk -v cores="$(nproc)" -v rounds="$rounds" '{ bytes += $1 }
        END { printf "%d files, %.2f GB, %d cores, %s rounds\n", NR, bytes / 1e9, cores, rounds }'
    mapfile -t programs < <(installed "$@")
    race "$rounds" "${programs[@]}"
}

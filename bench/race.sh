# Sourced by the comparisons: runs programs in turn and prints their times beside the first one's.
cd "$(dirname "${BASH_SOURCE[0]}")/.."
kestrel=$PWD/build/linux/bin/kestrel
cache=${XDG_CACHE_HOME:-$HOME/.cache}/kestrel/bench
[ -x "$kestrel" ] || {
    echo 'build kestrel first: scripts/build linux kestrel' >&2
    exit 1
}

# sums_of <manifest>: the manifest as sha256sum and rhash read it.
sums_of() { sed 's/ \*\.\\/  .\//; s#\\#/#g' "$1"; }

# Each of these is one way to hash or check the files of the current directory; the name with blanks
# for underscores is its label. $manifest and $sums hold their digests.
kestrel_-c() { "$kestrel" -c --manifest="$manifest" --instdir=.; }
kestrel_-g() { "$kestrel" -g --manifest="$manifest.again" --instdir=.; }
sha256sum_-c() { sha256sum -c --quiet "$sums"; }
rhash_-c() { rhash --sha256 -c "$sums"; }
openssl_dgst_on_all_cores() {
    find . -type f -print0 | xargs -0 -P "$(nproc)" -n 100 openssl dgst -sha256
}
hashdeep_-j() { hashdeep -r -c sha256 -j "$(nproc)" .; }
b3sum_on_all_cores() { find . -type f -print0 | xargs -0 b3sum; }
plain_reading() { find . -type f -print0 | xargs -0 cat; }

# Those of the programs named that are installed.
installed() {
    local program
    for program; do
        case $program in
        kestrel_* | plain_*) echo "$program" ;;
        *) ! command -v "${program%%_*}" >/dev/null || echo "$program" ;;
        esac
    done
}

declare -A times # of each program, in microseconds

# clock <program>: runs it with its output thrown away, and sets `elapsed` to the microseconds.
clock() {
    local start=$EPOCHREALTIME
    "$1" >/dev/null 2>"$cache/errors" || {
        cat "$cache/errors" >&2
        exit 1
    }
    local end=$EPOCHREALTIME
    elapsed=$((${end/./} - ${start/./}))
}

sorted() { tr ' ' '\n' <<<"${times[$1]}" | sed '/^$/d' | sort -n; }
median() { sorted "$1" | awk '{ value[NR] = $1 } END { print value[int((NR + 1) / 2)] }'; }

# race <rounds> <program...>: one round unmeasured to warm the cache, then the programs in turn; a
# line for each, with its ratio to the first.
race() {
    local rounds=$1 round program
    shift
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

#!/bin/sh
# Tests the program and the platform layer from a shell, which can start programs, take rights from
# them and make their system calls fail in ways that a test program cannot. Runs one case, a
# function below; says what it printed and should not, and fails if it did. Ends with status 77 if
# the case is not possible on this machine or for this user.
#
#   system_test.sh <directory of the programs> <case>
#
# The programs' paths are without spaces, some variables hold several words, and functions are
# called by name:
# shellcheck disable=SC2012,SC2046,SC2086,SC2317
child=$1/child kestrel=$1/kestrel
nobody=
[ "$(id -u)" != 0 ] || nobody='setpriv --reuid=65534 --regid=65534 --clear-groups'
fail='strace -f -o /dev/null -e' # fail inject=<call>:error=<errno>
in_place='inject=/^rename:error=EBUSY' # the old file cannot be replaced by another
tab=$(printf '\t')
export ASAN_OPTIONS=detect_leaks=0 # does not work under strace
place=$(mktemp -d) || exit
trap 'rm -rf "$place"' EXIT
chmod 711 "$place"

# Makes the directory that a case works in: it has "from", "to" and "dir/to", which anybody may
# write.
fresh() {
    cd "$place" && { [ ! -d work ] || { chmod -R u+rwx work && rm -rf work; }; }
    mkdir -m 777 work && cd work && mkdir -m 777 dir && echo old >to && echo new >from &&
        cp to dir/to && chmod 666 from to dir/to || exit
}

# needs <command...>: skips the case unless the command succeeds here.
needs() {
    "$@" >/dev/null 2>&1 || {
        echo "not possible here: $*" >"$place/report"
        exit 77
    }
    fresh
}

# expect [line...]: what has been printed since the last time.
expect() {
    printf '%s\n' "$@" >"$place/expected"
    cmp -s "$place/expected" "$place/printed" || {
        echo "${row:+$row: }expected (<) and printed (>):"
        diff "$place/expected" "$place/printed"
    } >>"$place/report"
    : >"$place/printed"
}

# follow <options of strace, program...>: runs the program under strace and calls `at` for each line
# of the trace, with its process in $pid, that of the program in $first, and the rest in $line. With
# "inject=<call>:signal=STOP" processes are held after the call until `at` resumes them. Ends when
# all processes have ended.
follow() {
    mkfifo trace
    timeout -k 1 60 strace -f -o trace "$@" >out 2>&1 &
    first=
    while read -r pid line; do
        first=${first:-$pid}
        at
    done <trace
    wait
}

# resume <process...>: they may have ended.
resume() { kill -CONT "$@" 2>/dev/null || :; }

# A tree of some files and its manifest "m".
make_tree() {
    mkdir tree && for i in 1 2 3 4 5 6; do echo $i >tree/$i; done
    $kestrel -g --manifest=m --instdir=tree >out
}

# --- Programs that are started

StatusesArriveThoughEndsAreIgnored() {
    needs env --ignore-signal=CHLD true
    env --ignore-signal=CHLD $child --spawn --exit 5 || echo $?
    expect 5
}

StandardStreamsThatAreClosedAreNotReused() {
    $child --opened new <&- >&- 3>&- || echo $?
    expect 3
}

# --- Signals

# Whether it ends, with which status, what stays behind, and whether it prints a text.
SignalsEndPrograms() {
    rm dir/to
    for how in '2 hang' '2 again' 3 '15 fault' '11 fault' '11 overflow' '15 ignored'; do
        $child --die "$PWD/dir" $how >out 2>&1
        echo $? $(ls dir) $(grep -c Norvane out)
    done
    expect '2 caught 0' '2 caught 0' '3 caught 0' '15 caught 0' '11 caught 1' '11 caught 1' \
        '0 caught 0'
}

# --- Writes that fail

WritingToNobodyIsAnError() {
    { $child --catch --write || echo $? >&2; } | true
    expect 3
    trap '' PIPE
    { $child --catch --spawn --write || echo $? >&2; } | true
    expect 3
}

StartedProgramsGetTheSignalOfPipes() {
    needs env --default-signal=PIPE true
    { env --default-signal=PIPE $child --catch --spawn --write || echo $? >&2; } | true
    expect 141
}

CopiesBeyondTheLimitFail() {
    head -c 2000000 /dev/zero >from
    (ulimit -f 2000; $child --catch --copy from to)
    cat to; echo *
    expect '0 27' old 'dir from to'
}

# --- Copies: the reasons for failure, before and after

CopiesSayWhyTheyFailed() {
    ln -s loop loop
    for to in dir gone/to to/x '' loop /dev/full /dev/null; do $child --copy from "$to"; done
    echo *
    expect '21 21' '2 2' '20 20' '2 2' '40 40' '0 28' '0 0' 'dir from loop to'
}

CopiesKeepTheRights() {
    chmod 605 to
    $child --copy from to
    ls -l to | cut -c 1-10
    expect '0 0' -rw----r-x
}

CopiesOfAFileToItselfKeepIt() {
    cd dir && cp ../from .
    $child --copy from from
    cat from
    echo *
    expect '0 0' new 'from to'
}

# copied <user> <groups>: the owner and the rights of a file in whose place that user has written
copied() {
    setpriv --reuid=$1 --regid=$1 $2 $child --copy from to >out
    stat -c '%u:%g %a' to
}

CopiesKeepTheOwner() {
    needs setpriv --reuid=1 --clear-groups true
    chown 7:8 to && chmod 640 to && copied 0 --keep-groups
    expect '7:8 640'
    rm to && echo >to && chown 1:8 to && chmod 640 to && copied 1 --groups=8
    expect '1:8 640'
    rm to && echo >to && chown 1:8 to && chmod 604 to && copied 1 --clear-groups
    expect '1:1 604'
}

# A new file is possible neither beside it nor in its place.
CopiesToAClosedDirectoryAreWrittenInPlace() {
    needs $nobody $child --exit 0
    chmod 555 dir
    $nobody $child --copy from dir/to
    $nobody $child --copy dir/to dir/to
    cat dir/to
    $nobody $child --copy from dir/new
    ls dir
    expect '0 0' '0 0' new '13 13' to
}

# There the owner's file cannot be replaced by renaming.
CopiesToAStickyDirectoryAreWrittenInPlace() {
    needs $nobody $child --exit 0
    chmod 1777 dir
    $nobody $child --copy from dir/to
    cat dir/to
    ls dir
    expect '0 0' new to
}

CopiesNeedTheRightToWrite() {
    needs $nobody $child --exit 0
    chmod 444 dir/to
    $nobody $child --copy from dir/to; cat dir/to
    expect '13 13' old
}

CopiesToAMountedFileAreWrittenInPlace() {
    needs unshare -m mount --bind from to
    unshare -m sh -c "mount --bind dir/to to && $child --copy from to"
    cat dir/to to
    expect '0 0' new old
}

# --- The disk fails, or is full

CopiesToAFullDiskFail() {
    needs unshare -m mount -t tmpfs none .
    unshare -m sh -c "mount -t tmpfs -o nr_inodes=2 none dir && echo old >dir/to &&
        $child --copy from dir/to; cat dir/to"
    expect '0 28' old
}

# What is written, and the directory, must reach the disk, unless that is never possible there.
CopiesMustReachTheDisk() {
    needs $fail trace=none true
    $fail inject=fsync:error=EIO:when=1 $child --copy from to; cat to; echo *
    expect '0 5' old 'dir from to'
    $fail inject=fsync:error=EROFS:when=1 $child --copy from to; cat to
    expect '0 30' old
    $fail inject=fsync:error=EROFS:when=2 $child --copy from to; cat to
    expect '0 5' new
    $fail inject=fsync:error=EINVAL $child --copy dir/to to; cat to
    expect '0 0' old
}

CopiesAreWrittenInPlaceIfTheFileIsBusy() {
    needs $fail trace=none true
    $fail 'inject=/^rename:error=EIO' $child --copy from to; cat to; echo *
    expect '0 5' old 'dir from to'
    $fail $in_place $child --copy from to; cat to; echo *
    expect '0 0' new 'dir from to'
    # A longer old file leaves nothing.
    echo older >to
    $fail $in_place $child --copy from to; cat to
    expect '0 0' new
}

# Without the lock, or the source's beginning, nothing is written over the old file; nothing at all
# is an empty file.
WritingInPlaceNeedsALockAndTheSource() {
    needs $fail trace=none true
    $fail $in_place -e inject=fcntl:error=ENOLCK $child --copy from to; cat to
    expect '0 37' old
    $fail $in_place -e inject=lseek:error=ESPIPE:when=1 $child --copy from to; cat to
    expect '0 29' old
    : >from
    $fail $in_place $child --copy from to; stat -c %s to
    expect '0 0' 0
}

# What was written over is looked at before the first character.
WhatIsWrittenInPlaceIsReadBack() {
    needs $fail trace=none true
    at() {
        case $line in
        '--- stopped'*)
            [ ! "$held" ] || eval "$row"
            held=1
            resume $pid ;;
        esac
    }
    for row in ': >to' 'truncate -s 2 to' 'printf x | dd of=to conv=notrunc status=none'; do
        fresh
        held=
        follow -e $in_place -e inject=fsync:signal=STOP $child --copy from to
        cat out
        grep -q new to || echo spoilt
        expect '0 16' spoilt
    done
}

FilesThatCannotBeRemovedAreNamed() {
    needs $fail trace=none true
    $fail 'inject=/^(rename|unlink):error=EPERM' $child --copy from to 2>&1 |
        sed 's/zv.*tmp/zv.tmp/'
    cat to
    expect 'Cannot remove file "zv.tmp": Operation not permitted' '0 0' new
}

# What is written over the old file is not text until it is complete.
WhatIsWrittenInPlaceBeginsWithANul() {
    needs $fail trace=none true
    $fail $in_place -e inject=fsync:error=EIO:when=2 $child --copy from to; tr '\0' 0 <to
    expect '0 5' 0ew
    fresh
    $fail $in_place -e inject=fsync:error=EIO:when=3 $child --copy from to; cat to
    expect '0 5' new
}

RenamingInOneStepIsNotNeeded() {
    needs $fail trace=none true
    for row in EINVAL ENOSYS; do
        fresh
        $fail inject=renameat2:error=$row $child --rename to there; echo $? *
        expect '0 dir from there'
    done
    fresh
    $fail inject=renameat2:error=EACCES $child --rename to there; echo $? *
    expect '13 dir from to'
}

DirectoriesAreNotMadeBelowAnUnreadableTop() {
    needs $fail trace=none true
    $fail 'inject=/stat:error=EIO' -P / -P /gone $child --mkdir /gone || echo $?
    expect 1
}

# --- Directories that are read

# One below the top cannot be read, for a reason other than rights.
DirectoriesThatCannotBeReadFailARun() {
    needs $fail trace=none true
    for row in openat:error=EIO openat:error=EMFILE openat:error=ENOENT getdents64:error=EIO \
        getdents64:error=ENOENT getdents64:error=ESTALE; do
        fresh
        mkdir -p tree/sub && : >tree/sub/unseen && echo >tree/1 && echo old >m
        $fail inject=$row -P ./sub -P "$PWD/tree/sub" \
            $kestrel -g --manifest=m --instdir=tree >out
        cat m
        expect 'Cannot read directory "./sub"' 'There was a problem generating the manifest file' \
            old
        $kestrel -g --manifest=m --instdir=tree >out && rm tree/sub/unseen && sed -i /unseen/d m
        $fail inject=$row -P ./sub -P "$PWD/tree/sub" \
            $kestrel -c --extra --report --tasks=1 --manifest=m --instdir=tree |
            sed -n '/Cannot/s/: .*//p; /Ver/p'
        expect "error${tab}0${tab}Cannot read directory \"./sub\"" 'Verification failed'
    done
}

# link_set_anew [identity]: a link is set anew while a file is hashed, or while the manifest is on
# its way to the disk; all files have the identity.
link_set_anew() {
    at() {
        case $line in
        '--- stopped'*)
            [ "$held" ] || mv -T next cur
            held=1
            resume $pid ;;
        '+++'*) [ "${line##* with 1 *}" ] || echo 1 ;;
        esac
    }
    for row in 'preadv2 -c' 'preadv2 -g' 'fsync -g'; do
        fresh
        held=
        mkdir A B && for i in 1 2 3; do echo $i >A/$i && echo $i >B/$i; done
        $kestrel -g --manifest=m --instdir=A >out && ln -s A cur && ln -s B next
        follow ${1:+-e $1} -e inject=${row% *}:signal=STOP \
            $kestrel ${row#* } --tasks=1 --manifest=m --instdir="$PWD/cur"
        expect 1
    done
}

LinksThatAreSetAnewFailARun() {
    needs $fail trace=none true
    link_set_anew
}

# Files may look alike to who compares their identities: these are the bytes of all of them.
alike="inject=newfstatat:poke_exit=@arg3="
zeros=00000000000000000000000000000000 sevens=07000000000000000700000000000000

LinksThatAreSetAnewFailARunWhereFilesLookAlike() {
    needs $fail "$alike$zeros" $kestrel -h
    link_set_anew "$alike$zeros"
    link_set_anew "$alike$sevens"
}

TreesWhereFilesLookAlikeAreListed() {
    needs $fail "$alike$zeros" $kestrel -h
    mkdir -p tree/sub/in temp && echo >tree/sub/1 && echo >tree/sub/in/2 && ln -s sub tree/link
    for dir in tree/sub/in tree/sub tree; do
        until touch $dir && now=$(stat -c %z $dir) && [ "$now" != "$last" ]; do :; done
        last=$now
    done
    export TEMP="$PWD/temp"
    printf '%s\n' -g --manifest=m >inner && echo @inner >outer
    for old in old ''; do
        printf %s "$old" >m
        $fail "$alike$zeros" $kestrel @outer --tasks=1 --instdir=tree | grep -v '"'
        grep -c . m
        expect 'Manifest file successfully created' 4
    done
}

# --- Temporaries

TemporariesAreRemovedWhereverASignalStrikes() {
    needs $fail trace=none true
    for row in mkdir unlink rmdir; do
        fresh
        rm dir/to
        TEMP=$PWD/dir $fail "inject=/^$row:signal=TERM:when=1" $child --catch --temps >out ||
            echo $?
        echo * && rmdir dir
        expect 15 'dir from out to'
    done
}

TemporariesHaveNamesOfTheirOwn() {
    umask 0
    TEMP=$PWD $child --temps keep >/dev/null
    mv zv* dir/zv
    ls -ld dir/zv | cut -c 1-10
    mv dir/zv/* dir
    rm dir/to
    find dir reg* -type f | sort
    expect drwx------ dir/kestrel_tmp_0.out dir/kestrel_tmp_1.out dir/kestrel_tmp_2 \
        dir/kestrel_tmp_3. dir/kestrel_tmp_4/inner registered.txt
}

TemporariesNeedADirectory() {
    for no in "$PWD/to" /proc; do TEMP=$no $child --temps || echo $?; done
    expect 1 1
    TEMP=$PWD/to $child --temps "$PWD" | grep -c "^$PWD/zvA"
    expect 5
}

# What they contain is unknown.
DirectoriesThatCannotBeListedStay() {
    needs $nobody $child --exit 0
    mkdir dir/a empty
    chmod 333 dir empty
    $nobody $child --rmtree dir && $nobody $child --rmtree empty && chmod 755 dir
    ls dir && ls -d empty
    expect a to empty
}

# --- Packages

# What a user may not write to: each step fails, and is warned about.
PackagesThatCannotBeWrittenStay() {
    needs $nobody $child --exit 0
    echo >go && $child --log zip:+p && cp p old && chmod 444 p
    $nobody $child --log zip:+p 2>&1 | LC_ALL=C sort -u | sed 's/^ZVDEBUG (warning): Unable to/-/'
    cmp p old
    expect '- add archive "go" (from "go") to package zip (p)' \
        '- covert package zip file (p) reader to a writer to append "go"' \
        '- end package zip (p) after adding "go"' \
        '- finalize package zip (p) after adding "go"'
}

# --- The tool

# The name leads to a correct manifest only while tasks are being started.
ManifestsThatChangeAndChangeBackDoNotPass() {
    needs $fail trace=none true
    make_tree
    mv m bad && echo changed >tree/6
    $kestrel -g --manifest=sound --instdir=tree >out && ln -s bad m
    flip() { ln -s $1 n && mv -T n m; }
    started='' stops=0
    # A task is held when it is about to run, and the parent when each task has ended.
    at() {
        case $line in
        '--- stopped'*)
            [ $pid = $first ] || [ "$started" ] || flip sound
            [ $pid = $first ] || started=1
            [ $pid != $first ] || [ $((stops += 1)) != 3 ] || flip bad
            resume $pid ;;
        esac
    }
    follow -e inject=execve,waitid:signal=STOP $kestrel -c --manifest=m --instdir=tree --tasks=2
    grep -v '"' out
    expect 'Verification failed'
}

# It gets shorter while its lines are looked for.
ManifestsThatGetShorterAreReported() {
    needs $fail trace=none true
    make_tree
    $fail inject=read:retval=0:when=4 -P "$PWD/m" \
        $kestrel -c --report --manifest=m --instdir=tree --tasks=2 | grep error
    expect "error${tab}0${tab}Could not read manifest file"
}

# A file system may report only on closing that there is no room, or report an error only once.
OutputThatIsLostLateOrOnceFailsARun() {
    needs $fail trace=none true
    make_tree
    $fail inject=close:error=EDQUOT:when=1 -P "$PWD/out" \
        $kestrel -c --tasks=1 --manifest=m --instdir=tree >out || echo $?
    expect 'Cannot write to standard output: Disk quota exceeded' 1
    $fail inject=write:error=EIO:when=1 -P "$PWD/out" \
        $kestrel -c --tasks=1 --manifest=m --instdir=tree >out || echo $?
    expect 'Cannot write to standard output: Input/output error' 1
}

# Its parent has ended before it could be tied to it.
TasksWithoutAParentDoNotRun() {
    needs $fail trace=none true
    make_tree
    ran=0
    at() {
        case $line in
        '--- stopped'*)
            if [ $pid = $first ]; then resume $pid; else task=$pid && kill -9 $first; fi ;;
        '+++ killed'*) [ $pid != $first ] || resume $task ;;
        execve*) ran=$((ran + 1)) ;;
        esac
    }
    follow -e inject=rt_sigaction:signal=STOP:when=1 \
        $kestrel -c --manifest=m --instdir=tree --tasks=2
    echo $ran
    expect 1
}

# tasks_end_with_their_parent [options of strace]: two are running when it is ended.
tasks_end_with_their_parent() {
    tasks='' ended=0
    at() {
        case $line in
        '--- stopped'*)
            if [ $pid = $first ]; then resume $pid; else tasks="$tasks $pid"; fi
            [ "$tasks" = "${tasks#* * }" ] || kill -9 $first ;;
        '+++ killed'*)
            ended=$((ended + 1))
            [ $pid != $first ] || resume $tasks ;;
        esac
    }
    follow "$@" -e inject=chdir:signal=STOP \
        $nobody ./kestrel -c --manifest=m --instdir=tree --tasks=2
    echo $ended
    expect 3
}

TasksEndWithTheirParent() {
    needs $fail trace=none $nobody true
    make_tree
    chmod 755 . && cp $kestrel .
    tasks_end_with_their_parent -e inject=prctl:error=EPERM:when=1
}

# The system forgets that they are to when a program with capabilities begins to run.
TasksWithCapabilitiesEndWithTheirParent() {
    needs $fail trace=none $nobody true
    needs setcap cap_dac_read_search+ep to
    make_tree
    chmod 755 . && cp $kestrel . && setcap cap_dac_read_search+ep kestrel
    tasks_end_with_their_parent
}

# It would otherwise go on while the parent removes its temporaries.
ASignalToTheParentEndsATaskThatIsStarting() {
    needs $fail trace=none true
    make_tree
    mkdir temp
    task=
    at() {
        case $line in
        '--- stopped'*)
            if [ $pid = $first ]; then resume ${task:-$pid}; else task=$pid; fi ;;
        '+++'*)
            echo ${line#+++ }
            task=
            [ $pid = $first ] || resume $first ;;
        esac
    }
    export TEMP="$PWD/temp"
    follow -e inject=vfork:signal=TERM:when=1 -e inject=execve,unlink,getdents64:signal=STOP \
        $kestrel -c --report --manifest=m --instdir=tree --tasks=2
    ls temp
    expect 'killed by SIGKILL +++' 'exited with 15 +++'
}

# --- Without /proc

ProgramsFindThemselvesWithoutProc() {
    needs unshare -m sh -c "umount -l /proc && $child --exit 0"
    cp $child . && ln -s child link
    unshare -m sh -c 'umount -l /proc && cd dir && ../link --where' | sed "s,^$PWD/,,"
    expect child
}

ACheckNeedsNothingButTheProgram() {
    needs sh -c "cp $kestrel . && chroot . ./kestrel -h"
    mkdir tree && cp $kestrel . && for i in 1 2 3 4 5 6; do echo $i >tree/$i; done
    for mode in -g '-c --tasks=2'; do
        chroot . ./kestrel $mode --manifest=m --instdir=tree
    done | grep -v '"'
    expect 'Manifest file successfully created' 'Verification passed'
}

exec </dev/null
: >"$place/report"
: >"$place/printed"
fresh
("$2") >>"$place/printed" 2>&1
status=$?
chmod -R u+rwx "$place/work"
if [ $status = 77 ]; then
    cat "$place/report"
    exit 77
fi
[ ! -s "$place/printed" ] || { row='at the end' && cd "$place" && expect; }
[ -f "$place/expected" ] || echo 'nothing is expected' >>"$place/report"
cat "$place/report"
[ ! -s "$place/report" ]

#!/usr/bin/env bash
# Times a verified extraction against what an engineer would otherwise run.
#
# Usage: bench/run.sh [--quick | --smoke] [--bounds] [--reps N] [--build DIR]
#                     [--work DIR] [--packages "large wide many"] [--out FILE]
#                     [--docs | --no-docs] [--no-install]
#
# Builds the tool twice (RelWithDebInfo, in build-bench and build-bench-zlib
# unless --build names the first): once with the source reader inflating
# the package with ISA-L, once with libarchive inflating it with zlib.
# Installs the Debian packages it compares with when they are missing (with
# --no-install it leaves out the commands whose tool is missing instead),
# writes three signed packages with deterministic contents, and then, for each
# package, once the machine is idle again after writing it (at most a minute),
# runs every command of the list below in turn, the order rotated on
# every repetition, each into a fresh destination directory under the work
# directory (default /var/tmp/ev-bench) that is removed (and synced away)
# outside the timing:
#
#   ours       extract-verify extract --cert CERT --quiet PACKAGE DEST
#              (verifies the signature and every file; syncs at the end),
#              the reader inflating with ISA-L
#   ours-zlib  the same, libarchive inflating with zlib on the extract thread
#   bsdtar     bsdtar -xzf PACKAGE -C DEST; sync
#   tar+sha    tar -xzf PACKAGE -C DEST; sha256sum -c of every file; sync
#   pigz       pigz -dc PACKAGE > /dev/null   (decompression alone)
#   igzip      igzip -dc PACKAGE > /dev/null  (ISA-L's inflate alone: one
#              part of the floor)
#   untar      bsdtar -xf TAR -C DEST; sync, TAR being the package inflated
#              beforehand (writing the files alone: the other part)
#
# The floor of a package is the larger of igzip and untar. With --bounds,
# more commands time the parts of a run one at a time:
#
#   sha256     openssl dgst -sha256 of every file, read from the page cache
#   write      cp -R of the extracted files into DEST, without sync
#   files      the per-file resources of a run alone: two waiting threads per
#              file and the file's bytes touched in one shared ring
#              (bench/file_threads_floor.cc)
#
# and the report says what bounds each package: inflating on one core
# (igzip), hashing and writing on the other (sha256 + write), or writing and
# syncing the files to the disk (untar).
#
# With --docs (the default of a full run), the table, the goals and the
# bounds replace the part of docs/performance.md between its bench markers,
# and gnuplot draws the wall times as docs/performance.svg.
#
# Reported per package and command, each the median over the repetitions:
# wall time, CPU time (user + system), peak resident memory of the largest
# process, voluntary and involuntary context switches (GNU time's %w and %c,
# summed over the command's processes), and the ratios of ours to each other
# command. Packages:
#
#   large  made as a producer without our tools makes one (bench/stock_package.sh:
#          openssl smime, GNU tar, gzip -6): a 384 MiB image of real binaries
#          from /usr/lib, zeros and random bytes, 96 MiB of random bytes and
#          18 small files
#   wide   made the same way: 16 files of 24 MiB, half real binaries, half
#          random bytes
#   many   2,000 files of 4 to 64 KiB of mixed compressibility (make_package;
#          its manifest can list only the first files, so ours fails at the end)
#
# Besides the build, a full run takes about seven minutes on 2 cores (--bounds
# included, 7 repetitions); --quick (packages an eighth of the size, 3
# repetitions) about a minute; --smoke (tiny packages, one repetition) a few seconds, and checks
# that everything runs. docs/performance.md has the figures of a full run and
# how to read them.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
mode=full
reps=
build=$root/build-bench
work=/var/tmp/ev-bench
packages="large wide many"
out=
bounds=0
install=1
docs=

while [ $# -gt 0 ]; do
  case $1 in
    --quick) mode=quick ;;
    --smoke) mode=smoke ;;
    --reps) reps=$2; shift ;;
    --build) build=$2; shift ;;
    --work) work=$2; shift ;;
    --packages) packages=$2; shift ;;
    --bounds) bounds=1 ;;
    --no-install) install=0 ;;
    --docs) docs=1 ;;
    --no-docs) docs=0 ;;
    --out) out=$2; shift ;;
    -h|--help) sed -n '2,/^set -euo/p' "$0" | sed '$d; s/^# \{0,1\}//'; exit 0 ;;
    *) echo "run.sh: unknown argument $1" >&2; exit 2 ;;
  esac
  shift
done

# Package sizes (stock_package.sh scale, make_package arguments) and
# repetitions of each mode.
declare -A sizes
case $mode in
  full)  sizes=([large]=1 [wide]=1 [many]="--files 2000"); : "${reps:=7}" "${docs:=1}" ;;
  quick) sizes=([large]=8 [wide]=8 [many]="--files 500"); : "${reps:=3}" ;;
  smoke) sizes=([large]=64 [wide]=64 [many]="--files 40"); : "${reps:=1}" ;;
esac

log() { echo "run.sh: $*" >&2; }

for name in $packages; do
  [ -n "${sizes[$name]:-}" ] || { log "unknown package $name (large, wide or many)"; exit 2; }
done

install_missing() {
  [ "$install" = 1 ] || return 0
  local missing=() p
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return
  local sudo=""
  [ "$(id -u)" = 0 ] || sudo="sudo"
  log "installing ${missing[*]}"
  # A mirror that is half-way through a sync only spoils some lists; the
  # install below says whether the ones needed were fetched.
  $sudo apt-get update -qq || log "apt-get update reported errors; trying the install anyway"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

build_tools() {
  local dir inflater
  for inflater in isal zlib; do
    dir=$build
    [ "$inflater" = isal ] || dir=$build-zlib
    cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEV_WERROR=ON \
      -DEV_INFLATER="$inflater" >&2
    cmake --build "$dir" -j2 --target make_package file_threads_floor extract-verify >&2
  done
  cli=$build/tools/cli/extract-verify
  cli_zlib=$build-zlib/tools/cli/extract-verify
}

machine() {
  echo "- CPU: $(grep -m1 'model name' /proc/cpuinfo | sed 's/.*: //'), $(nproc) cores online"
  echo "- Memory: $(free -m | awk '/^Mem:/ {print $2}') MiB"
  echo "- Destination: $(df -PT "$work" | awk 'NR == 2 {print $2 " on " $1}') ($work)"
  echo "- Kernel: $(uname -sr); $(bsdtar --version | head -1); $(tar --version | head -1);" \
       "$(command -v pigz >/dev/null && pigz --version 2>&1 || echo no pigz)"
}

median() {
  sort -g | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# CPU time the whole machine has spent busy, in clock ticks.
busy_ticks() {
  awk '$1 == "cpu" { print $2 + $3 + $4 + $7 + $8 + $9; exit }' /proc/stat
}

# How much of the machine, while the commands were timed, went to anything
# but their own processes: other users, and kernel threads such as writeback.
other_load() {
  awk -v hz="$(getconf CLK_TCK)" -v cpus="$(nproc)" '
    { wall += $1; own += $2 + $3; busy += $4 / hz }
    END { printf "%.0f%%", (wall > 0) ? 100 * (busy - own) / (wall * cpus) : 0 }' "$work/busy.txt"
}

# Waits, up to a minute, until the machine has been nearly idle (under 5% of
# its CPU time busy) for five seconds: writing a package leaves the disk and
# the kernel busy for a while, and the first repetition would pay for it.
settle() {
  local hz before after i
  hz=$(getconf CLK_TCK)
  sync
  for ((i = 0; i < 12; i++)); do
    before=$(busy_ticks); sleep 5; after=$(busy_ticks)
    awk -v b=$((after - before)) -v hz="$hz" -v cpus="$(nproc)" \
      'BEGIN { exit !(b < 0.05 * 5 * hz * cpus) }' && return
  done
  log "the machine did not settle within a minute; timing anyway"
}

# One timed command: appends "package command wall cpu rss_kib voluntary
# involuntary" to the results. A run of ours is checked afterwards, outside the timing: every
# file must be on disk with its digest, and the run must have succeeded
# unless the package's manifest could not list every file, when it must
# have failed.
time_one() {
  local name=$1 label=$2 script=$3
  local pkg=$work/$name.pkg sums=$work/$name.sums dest=$work/dest.$invocation.$((++runs)) status=0
  mkdir "$dest"; sync
  local busy_before busy_after
  busy_before=$(busy_ticks)
  pkg=$pkg dest=$dest sums=$sums /usr/bin/time -f '%e %U %S %M %w %c' -o "$work/time.out" \
    sh -c "$script" || status=$?
  busy_after=$(busy_ticks)
  if [ "${label%-zlib}" = ours ]; then
    (cd "$dest" && sha256sum --quiet --strict -c "$sums") ||
      { log "ours left wrong files for $name"; exit 1; }
    if [ "${complete[$name]}" = 0 ]; then
      # Unlisted files must fail the final check.
      [ "$status" != 0 ] || { log "ours passed $name although its manifest is partial"; exit 1; }
      status=0
    fi
  fi
  [ "$status" = 0 ] || { log "$label failed on $name (exit $status)"; exit 1; }
  read -r wall user sys rss voluntary involuntary < <(tail -1 "$work/time.out")
  echo "$name $label $wall $(awk -v u="$user" -v s="$sys" 'BEGIN { print u + s }') $rss" \
    "$voluntary $involuntary" >>"$results"
  echo "$wall $user $sys $((busy_after - busy_before))" >>"$work/busy.txt"
  rm -rf "$dest"; sync
}

bench_package() {
  local name=$1 listed total
  log "writing the $name package (${sizes[$name]})"
  if [ "$name" = many ]; then
    # shellcheck disable=SC2086  # the sizes are several words
    read -r listed total < <("$build/bench/make_package" ${sizes[$name]} "$name" \
                              "$work/$name.pkg" "$work/cert.pem" "$work/$name.sums")
  else
    "$root/bench/stock_package.sh" "$name" "${sizes[$name]}" "$work"
    listed=$(wc -l <"$work/$name.sums")
    total=$listed
  fi
  # A run whose manifest lists only some files extracts them all and then
  # fails its final check; ours is expected to end so.
  complete[$name]=$((listed == total))
  if [ "$listed" != "$total" ]; then
    notes+=("- $name: the signed manifest lists $listed of $total files (Version.der is read in one piece of 4096 bytes), so ours extracts, hashes and writes every file and then fails its final check.")
  fi
  # Every command starts from the page cache; untar from the tar inside.
  gzip -dc "$work/$name.pkg" >"$work/$name.tar"
  cat "$work/$name.pkg" >/dev/null
  local -A scripts=(
    [ours]="exec '$cli' extract --cert '$work/cert.pem' --quiet \"\$pkg\" \"\$dest\" >/dev/null 2>>'$work/ours.err'"
    [ours-zlib]="exec '$cli_zlib' extract --cert '$work/cert.pem' --quiet \"\$pkg\" \"\$dest\" >/dev/null 2>>'$work/ours.err'"
    [bsdtar]='bsdtar -xzf "$pkg" -C "$dest" && sync'
    [tar+sha]='tar -xzf "$pkg" -C "$dest" && cd "$dest" && sha256sum --quiet -c "$sums" && sync'
    [pigz]='pigz -dc "$pkg" >/dev/null'
    [igzip]='igzip -dc "$pkg" >/dev/null'
    [untar]="bsdtar -xf '$work/$name.tar' -C \"\$dest\" && sync"
  )
  if [ "$bounds" = 1 ]; then
    # The parts of a run one at a time, over a copy extracted beforehand.
    rm -rf "$work/src"; mkdir -p "$work/src"; bsdtar -xzf "$work/$name.pkg" -C "$work/src"; sync
    scripts+=(
      [sha256]="cd '$work/src' && openssl dgst -sha256 -r * >/dev/null"
      [write]="cp -R '$work/src/.' \"\$dest\""
      [files]="exec '$build/bench/file_threads_floor' '$work/src'"
    )
  fi
  [ "$mode" = smoke ] || settle
  local rep i k
  for ((rep = 0; rep < reps; rep++)); do
    for ((i = 0; i < ${#labels[@]}; i++)); do
      k=$(((i + rep) % ${#labels[@]}))
      time_one "$name" "${labels[k]}" "${scripts[${labels[k]}]}"
    done
    log "$name: repetition $((rep + 1)) of $reps done"
  done
  rm -rf "$work/$name.pkg" "$work/$name.tar" "$work/src"
}

# Median of column `col` (3 wall, 4 cpu, 5 rss, 6 voluntary and 7
# involuntary switches) for one package and command.
stat_of() {
  awk -v p="$1" -v c="$2" -v col="$3" '$1 == p && $2 == c { print $col }' "$results" | median
}

report() {
  echo "| package | command | wall s | CPU s | peak RSS MiB | vol. switches | invol. switches | ours / command, wall | ours / command, CPU |"
  echo "|---|---|---:|---:|---:|---:|---:|---:|---:|"
  local name label ours_wall ours_cpu wall cpu rss vol invol
  for name in $packages; do
    ours_wall=$(stat_of "$name" ours 3)
    ours_cpu=$(stat_of "$name" ours 4)
    for label in "${labels[@]}"; do
      [ -n "$(stat_of "$name" "$label" 3)" ] || continue
      wall=$(stat_of "$name" "$label" 3)
      cpu=$(stat_of "$name" "$label" 4)
      rss=$(stat_of "$name" "$label" 5)
      vol=$(stat_of "$name" "$label" 6)
      invol=$(stat_of "$name" "$label" 7)
      awk -v n="$name" -v l="$label" -v w="$wall" -v c="$cpu" -v r="$rss" -v vs="$vol" \
          -v is="$invol" -v ow="$ours_wall" -v oc="$ours_cpu" 'BEGIN {
        rw = (l == "ours" || w == 0) ? "" : sprintf("%.2f", ow / w)
        rc = (l == "ours" || c == 0) ? "" : sprintf("%.2f", oc / c)
        printf "| %s | %s | %.2f | %.2f | %.1f | %d | %d | %s | %s |\n", n, l, w, c, r / 1024, vs,
          is, rw, rc
      }'
    done
  done
}

goal() {  # goal TEXT VALUE LIMIT
  awk -v t="$1" -v v="$2" -v m="$3" 'BEGIN {
    printf "- %s: %.2f (goal at most %s): %s\n", t, v, m, (v <= m ? "met" : "missed") }'
}

wall() { stat_of "$1" "$2" 3; }

ratio() {  # ratio PACKAGE COMMAND [OURS]: wall of ours (or OURS) over the command's
  awk -v a="$(wall "$1" "${3:-ours}")" -v b="$(wall "$1" "$2")" 'BEGIN { print a / b }'
}

# The larger of inflating alone and writing the files alone.
floor_of() {
  awk -v a="$(wall "$1" igzip)" -v b="$(wall "$1" untar)" 'BEGIN { print (a > b ? a : b) }'
}

goals() {
  local name limit
  for name in large wide; do
    case " $packages " in *" $name "*)
      limit=0.9
      [ "$name" = wide ] || limit=0.6
      goal "$name, wall ours / bsdtar" "$(ratio "$name" bsdtar)" "$limit"
      goal "$name, wall ours / floor ($(floor_of "$name") s)" \
        "$(awk -v a="$(wall "$name" ours)" -v f="$(floor_of "$name")" 'BEGIN { print a / f }')" 1.5
      goal "$name, peak RSS of ours in MiB" \
        "$(awk -v a="$(stat_of "$name" ours 5)" 'BEGIN { print a / 1024 }')" 48
      goal "$name, peak RSS of ours-zlib in MiB" \
        "$(awk -v a="$(stat_of "$name" ours-zlib 5)" 'BEGIN { print a / 1024 }')" 48 ;;
    esac
  done
  case " $packages " in *" large "*)
    goal "large, wall ours / tar+sha" "$(ratio large tar+sha)" 0.5 ;;
  esac
}

# What a package's run waits for: the slowest of the three parts that the
# pipeline overlaps.
bounds_report() {
  [ "$bounds" = 1 ] || return 0
  local name
  for name in $packages; do
    [ "$name" != many ] || continue
    awk -v n="$name" -v o="$(wall "$name" ours)" -v i="$(wall "$name" igzip)" \
        -v h="$(wall "$name" sha256)" -v w="$(wall "$name" write)" -v d="$(wall "$name" untar)" '
      BEGIN {
        hw = h + w
        what = "inflating on one core"; b = i
        if (hw > b) { what = "hashing and writing on the other core"; b = hw }
        if (d > b) { what = "writing and syncing the files (the disk)"; b = d }
        printf "- %s: ours %.2f s. Inflating alone (igzip) %.2f s; hashing and writing alone (sha256 + write) %.2f s; writing and syncing the files alone (untar) %.2f s: bound by %s, ours at %.2f x that part.\n", n, o, i, hw, d, what, o / b
      }'
  done
}

# docs/performance.svg: the median wall time of each command, per package.
draw() {
  local data=$work/plot.dat name label
  {
    printf 'command'
    for name in $packages; do printf ' %s' "$name"; done
    echo
    for label in "${labels[@]}"; do
      [ "$label" = files ] && continue
      printf '%s' "$label"
      for name in $packages; do
        local w
        w=$(wall "$name" "$label")
        printf ' %s' "${w:-NaN}"
      done
      echo
    done
  } >"$data"
  local columns
  columns=$(awk 'NR == 1 { print NF }' "$data")
  gnuplot <<GNUPLOT
set terminal svg size 900,420 font "sans,12"
set output "$root/docs/performance.svg"
set title "Median wall time per package and command (lower is better)"
set ylabel "seconds"
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.8 border -1
set key outside right top vertical
set xtics nomirror
set grid ytics
set yrange [0:*]
plot for [c=2:$columns] "$data" using c:xtic(1) title columnheader(c)
GNUPLOT
}

# Replaces the text between the bench markers of docs/performance.md.
write_docs() {
  local page=$root/docs/performance.md
  awk -v section="$1" '
    /<!-- bench:begin -->/ { print; while ((getline line < section) > 0) print line; skip = 1; next }
    /<!-- bench:end -->/ { skip = 0 }
    !skip' "$page" >"$page.new" && mv "$page.new" "$page"
}

declare -A complete=()
labels=(ours ours-zlib bsdtar tar+sha)
if [ "$install" = 1 ] || command -v pigz >/dev/null; then labels+=(pigz); fi
labels+=(igzip untar)
[ "$bounds" = 0 ] || labels+=(sha256 write files)
runs=0
invocation=$(date +%s%N)  # destination names never repeat an earlier run's
notes=()
install_missing libarchive-tools pigz isal time e2fsprogs gnuplot-nox
build_tools
mkdir -p "$work"
# Each run extracts into a directory of its own. On ext4 without a journal,
# creating a file in a block group where thousands of files were deleted in
# the last minutes scans past every one of them, which would time the
# previous run's clean-up rather than the extraction. With the top-directory
# flag on the work directory, ext4 places each destination in a block group
# with the fewest directories, searched from a hash of its name; names never
# used before keep the destinations away from the groups of earlier runs.
rm -rf "$work"/dest.* "$work/src"  # left by an interrupted run
chattr +T "$work" 2>/dev/null ||
  log "cannot mark $work as a top directory; file creation may be slowed by earlier runs"
results=$work/results.txt
: >"$results"
: >"$work/busy.txt"
: >"$work/ours.err"  # what ours says on standard error, for a failed run
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
started=$(date +%s)
for name in $packages; do bench_package "$name"; done
load_after=$(cut -d' ' -f1-3 /proc/loadavg)

{
  echo "Mode $mode, $reps repetitions, $(($(date +%s) - started)) s; load average before $load_before, after $load_after;"
  echo "while the commands ran, $(other_load) of the machine's CPU time went to other processes and kernel threads."
  echo
  machine
  echo
  report
  echo
  [ ${#notes[@]} -eq 0 ] || { printf '%s\n' "${notes[@]}"; echo; }
  goals
  bounds_report
} >"$work/section.md"
cat "$work/section.md" | tee ${out:+"$out"}
if [ "$docs" = 1 ]; then
  write_docs "$work/section.md"
  draw
  log "rewrote docs/performance.md and docs/performance.svg"
fi

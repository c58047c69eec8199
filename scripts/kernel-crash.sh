#!/bin/bash
# Cuts real file systems under the data store while it writes, and checks what
# the kernel kept. For ext4, ext4 mounted noauto_da_alloc, and xfs, each on a
# loop device, and for each kind of insert: seed a data folder, start the
# writer, cut the file system after 0.2-1.5 s (FS_IOC_SHUTDOWN, no log
# flush: what a power cut leaves), kill the writer, remount (the file system
# replays its journal), open the folder through the module (its log is
# recovered), check every data file with cjd and the records against what the
# writer acknowledged (tests/crash/CrashWriter.cpp).
#
#   kernel-crash.sh [CRASH_WRITER FS_SHUTDOWN CJD MODULE]   (default: build/'s)
# Needs root and loop devices; without them it says "skipped: <reason>" and
# exits 0. A bad cut keeps its folder, writer output and module log under
# /tmp/kernel-crash-bad/SEED. KERNEL_CRASH_CUTS (10) and KERNEL_CRASH_SYNC_CUTS (3)
# set the cuts per file system and kind at Durability 1 and 2;
# KERNEL_CRASH_SEED repeats a run's random pauses.
set -euo pipefail
cd "$(dirname "$0")/.."

WRITER=$(realpath "${1:-build/tests/crash/crash_writer}")
SHUTDOWN=$(realpath "${2:-build/tests/crash/fs_shutdown}")
CJD=$(realpath "${3:-build/tools/cjd}")
MODULE=$(realpath "${4:-build/datastore/libdatastore.so}")
CUTS=${KERNEL_CRASH_CUTS:-10}
SYNC_CUTS=${KERNEL_CRASH_SYNC_CUTS:-3}
SYNC_INTERVALS=(100 1000)   # ms, alternating over the Durability 1 cuts
IMAGE_MB=320                # xfs needs 300 MB
KINDS=(appends replaces middle before)
FILE_SYSTEMS=(ext4 ext4-noauto_da_alloc xfs)
KEEP_ROOT=/tmp/kernel-crash-bad

skip() { echo "kernel crash test skipped: $*"; exit 0; }

[ "$(id -u)" -eq 0 ] || skip "not root (it mounts loop devices)"
for program in "$WRITER" "$SHUTDOWN" "$CJD" "$MODULE"; do
  [ -e "$program" ] || { echo "error: $program is not built" >&2; exit 1; }
done
if ! command -v mkfs.xfs >/dev/null || ! command -v mkfs.ext4 >/dev/null; then
  { apt-get update -q && DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
      xfsprogs e2fsprogs; } >/dev/null || skip "xfsprogs and e2fsprogs are missing and apt-get could not install them"
fi

WORK=$(mktemp -d /tmp/kernel-crash.XXXXXX)
# Configuration, acknowledgements and module log stay off the cut file
# systems; on tmpfs when there is one, where the writer's syncs cost nothing.
SCRATCH=$(mktemp -d -p /dev/shm kernel-crash.XXXXXX 2>/dev/null || mktemp -d -p "$WORK")
declare -A DEVICE
cleanup() {
  for fs in "${!DEVICE[@]}"; do
    if mountpoint -q "$WORK/mnt-$fs"; then umount "$WORK/mnt-$fs" || true; fi
    losetup -d "${DEVICE[$fs]}" || true
  done
  rm -rf "$WORK" "$SCRATCH"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

for fs in "${FILE_SYSTEMS[@]}"; do
  truncate -s "${IMAGE_MB}M" "$WORK/$fs.img"
  DEVICE[$fs]=$(losetup -f --show "$WORK/$fs.img" 2>/dev/null) || skip "no loop device could be attached"
  case $fs in
    xfs) mkfs.xfs -q -f "${DEVICE[$fs]}" ;;
    *) mkfs.ext4 -q -F "${DEVICE[$fs]}" ;;
  esac || skip "no file system could be made on a loop device"
  mkdir "$WORK/mnt-$fs"
done

mount_fs() {  # fs
  case $1 in
    ext4-noauto_da_alloc) mount -o noauto_da_alloc "${DEVICE[$1]}" "$WORK/mnt-$1" ;;
    *) mount "${DEVICE[$1]}" "$WORK/mnt-$1" ;;
  esac
}
for fs in "${FILE_SYSTEMS[@]}"; do
  mount_fs "$fs" 2>/dev/null || skip "a loop device cannot be mounted here"
  umount "$WORK/mnt-$fs"
done

# One cut; prints what went wrong and returns 1 on a bad state.
cut_once() {  # fs kind level interval pause-ms run
  local fs=$1 kind=$2 level=$3 interval=$4 pause=$5 run=$6
  local scratch=$SCRATCH/run data=$WORK/mnt-$1/data status=0 cut pid
  rm -rf "$scratch" && mkdir -p "$scratch/config" "$scratch/temp"
  printf '[DATASTORE]\r\nDurability=%s\r\nSyncInterval=%s\r\n' "$level" "$interval" >"$scratch/config/pelto.cfg"
  local args=("$kind" "$MODULE" "$data" "$scratch/config" "$scratch/acks")
  mount_fs "$fs" || { echo "mount failed"; return 1; }
  (cd "$scratch" && "$WRITER" seed "${args[@]}" >"$scratch/seed.out" 2>&1) || { echo "seed failed"; status=1; }
  (cd "$scratch" && exec "$WRITER" write "${args[@]}" >"$scratch/write.out" 2>&1) &
  pid=$!
  sleep "$((pause / 1000)).$(printf %03d $((pause % 1000)))"
  kill -0 "$pid" 2>/dev/null || { echo "the writer ended before the cut"; status=1; }
  cut=$("$SHUTDOWN" "$WORK/mnt-$fs") || { echo "the cut failed"; status=1; }
  kill -KILL "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  if ! umount "$WORK/mnt-$fs" || ! mount_fs "$fs"; then echo "the remount failed"; return 1; fi
  cp -a "$data" "$scratch/data-after-cut"
  (cd "$scratch" && "$WRITER" check "${args[@]}" "$level" "$cut") || status=1
  while IFS= read -r -d '' file; do
    "$CJD" check "$file" >/dev/null 2>&1 || { echo "cjd check failed: ${file#"$data"/}"; status=1; }
  done < <(find "$data" -name '*.cjd' -print0)
  if [ $status -ne 0 ]; then
    mkdir -p "$KEEP" && cp -a "$scratch" "$KEEP/$fs-$kind-$run" && cp -a "$data" "$KEEP/$fs-$kind-$run/data-recovered"
    echo "  kept in $KEEP/$fs-$kind-$run (Durability $level, SyncInterval $interval)"
  fi
  rm -rf "$data"
  umount "$WORK/mnt-$fs"
  return $status
}

seed=${KERNEL_CRASH_SEED:-$$}
RANDOM=$seed
KEEP=$KEEP_ROOT/$seed
echo "kernel crash test: KERNEL_CRASH_SEED=$seed"
total_bad=0
for fs in "${FILE_SYSTEMS[@]}"; do
  for kind in "${KINDS[@]}"; do
    bad=0
    for ((run = 0; run < CUTS + SYNC_CUTS; run++)); do
      if ((run < CUTS)); then level=1 interval=${SYNC_INTERVALS[run % ${#SYNC_INTERVALS[@]}]}; else level=2 interval=1000; fi
      cut_once "$fs" "$kind" "$level" "$interval" $((RANDOM % 1300 + 200)) "$run" | sed "s/^/$fs $kind cut $run: /" || bad=$((bad + 1))
    done
    echo "$fs $kind: $((CUTS + SYNC_CUTS)) cuts ($CUTS at Durability 1, $SYNC_CUTS at 2), $bad bad"
    total_bad=$((total_bad + bad))
  done
done
[ $total_bad -eq 0 ] || { echo "kernel crash test: $total_bad bad cuts"; exit 1; }

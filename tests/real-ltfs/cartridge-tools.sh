#!/bin/sh
# The real ltfs, mkltfs and ltfsck on file-backed cartridges, under the drive
# names TapeDesk knows from itdt's scan. Started through a link named after
# the tool, in ROOT/bin, where ROOT also holds
#   ltfs-bin/     a link to the folder of the real programs
#   cartridges/   one folder per drive name: its cartridge
#   tools.log     one line per run: the tool and its arguments as TapeDesk gave them
# A device that is a drive name ("-o devname=rl1", "--device=rl1", "rl1")
# becomes its cartridge folder; an absolute path is passed on unchanged.
# The real program replaces this shell (exec), so the ltfs daemon's command
# line is the mounting one, with the mount point, as TapeDesk looks for it.
set -eu
tool=$(basename "$0")
root=$(cd "$(dirname "$0")/.." && pwd)
carts="$root/cartridges"
printf '%s\n' "$tool $*" >>"$root/tools.log"

cartridge() {
  case "$1" in
    /*) printf '%s' "$1" ;;
    *) printf '%s' "$carts/$1" ;;
  esac
}

# Each argument is rewritten in place; "$@" is rebuilt by rotating through it.
n=$#
while [ "$n" -gt 0 ]; do
  a=$1
  shift
  case "$tool:$a" in
    ltfs:devname=*) a="devname=$(cartridge "${a#devname=}")" ;;
    ltfs:*,devname=* | ltfs:-odevname=*)
      # "-o eject,devname=rl1" or "-odevname=rl1": the option list keeps its shape.
      head=${a%%devname=*}
      tail=${a#*devname=}
      dev=${tail%%,*}
      rest=${tail#"$dev"}
      a="${head}devname=$(cartridge "$dev")$rest"
      ;;
    mkltfs:--device=*) a="--device=$(cartridge "${a#--device=}")" ;;
    ltfsck:-*) ;;
    ltfsck:*) a=$(cartridge "$a") ;;
  esac
  set -- "$@" "$a"
  n=$((n - 1))
done
exec "$root/ltfs-bin/$tool" "$@"

#!/bin/sh
# The Debian package as an operator gets it: cpack builds it from this build
# tree, dpkg-deb unpacks it, and both programs start from the unpacked files
# (the window offscreen, in an empty home), so a file the package lacks or a
# library its binaries cannot find fails here rather than on a host.
#
#   check_deb.sh BUILD_DIR APP_ID
set -eu
id=$2
work=$(mktemp -d)
trap 'rm -rf "$work"; [ -z "${!:-}" ] || kill -KILL $! 2>/dev/null || true' EXIT
fail() { echo "FAIL: $*" && cat "$work/log" && exit 1; }

cpack --config "$1/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/log" 2>&1 || fail cpack
r=$work/root
dpkg-deb -x "$work"/out/*.deb "$r" >"$work/log" 2>&1 || fail "cpack made no package"
for f in bin/tapedesk bin/tapedesk-cli "share/applications/$id.desktop" "share/metainfo/$id.metainfo.xml" \
  share/man/man1/tapedesk.1.gz share/man/man1/tapedesk-cli.1.gz share/bash-completion/completions/tapedesk-cli \
  share/doc/tapedesk/copyright share/doc/tapedesk/changelog.Debian.gz \
  "share/icons/hicolor/256x256/apps/$(sed -n 's/^Icon=//p' "$r/usr/share/applications/$id.desktop").png" \
  "bin/$(sed -n 's/^Exec=\([^ ]*\).*/\1/p' "$r/usr/share/applications/$id.desktop")"; do
  [ -f "$r/usr/$f" ] || fail "the package lacks /usr/$f"
done
for m in help account; do
  find "$r/usr/lib" -path "*/tapedesk/libtapedesk_$m.so" | grep -q . || fail "the package lacks the $m window's library"
done
grep -q "<launchable type=\"desktop-id\">$id.desktop<" "$r/usr/share/metainfo/$id.metainfo.xml" || fail "metainfo launchable"

"$r/usr/bin/tapedesk-cli" --help >"$work/log" 2>&1 && grep -q '^Usage: tapedesk-cli' "$work/log" || fail "tapedesk-cli --help"

h=$work/home
mkdir -p "$h/config" "$h/data" "$h/state" "$h/cache" "$h/run" && chmod 700 "$h/run"
HOME=$h XDG_CONFIG_HOME=$h/config XDG_DATA_HOME=$h/data XDG_STATE_HOME=$h/state XDG_CACHE_HOME=$h/cache \
  XDG_RUNTIME_DIR=$h/run QT_QPA_PLATFORM=offscreen TAPEDESK_REPORT_FIRST_FRAME=1 \
  "$r/usr/bin/tapedesk" >"$work/out.txt" 2>"$work/log" &
for _ in $(seq 300); do
  grep -q '^first-frame$' "$work/out.txt" && break
  kill -0 $! 2>/dev/null || fail "the packaged tapedesk ended before its first frame"
  sleep 0.1
done
grep -q '^first-frame$' "$work/out.txt" || fail "the packaged tapedesk showed no first frame"
# Quit as a logout does, right as the first start's message opens: it ends.
kill -TERM $!
for _ in $(seq 100); do
  kill -0 $! 2>/dev/null || { echo "package ok" && exit 0; }
  sleep 0.1
done
fail "the packaged tapedesk did not quit on SIGTERM"

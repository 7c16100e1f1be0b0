# What differs by nature between the real programs on a folder and the
# simulator standing for a drive, masked before their standard error is
# compared (sed -E). The cartridge folder is already replaced by its drive name.

# The tape backend's own messages (LTFS30000-30399: the file backend's about
# its folder, the sg backend's about the drive) and which backend was loaded.
/LTFS3[0-9]{4}[IWED] |Plugin: Loading "[^"]*" tape backend/d

# The format version line: the simulator names the version alone.
s/(LTFS14058I LTFS Format) [A-Za-z]+ (version)/\1 \2/
# "5ec0 LTFS11031I ...": the logging thread.
s/^[0-9a-f]+ (LTFS)/TID \1/
s/[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}/UUID/g
# "Format time     : 2026-11-23 12:42:14.119214076 UTC."
s/[0-9]{4}-[0-9]{2}-[0-9]{2}[ T][0-9:]{8}(\.[0-9]+)?( UTC|Z)?/TIME/g
# The drive's serial: "... -> (b, 5) / 1013000101.", "... 0 files) 1013000101.", "Pos = 5, 1013000101)."
s/( \/ \(a, [0-9]+\) -> \(b, [0-9]+\) \/ )[^ ]+\.$/\1SERIAL./
s/( files\) )[^ ]+\.$/\1SERIAL./
s/(Pos = [0-9]+, )[^)]+\)/\1SERIAL)/
# Where an index lands depends on how much the case wrote.
s/\(([ab]), [0-9]+\)/(\1, POS)/g
s/(Pos = |latest index at )[0-9]+/\1POS/
# "Update index-dirty flag (1) - TD0001 (0x0x55feea0becd0)."
s/\(0x0x[0-9a-f]+\)/(ADDRESS)/
s/(Launched by ).*$/\1COMMAND/
s/(GCC version is |Kernel version: |Distribution: ).*$/\1HOST/
# The drive's and the medium's own figures, and the writer's vendor.
s/(Maximum device block size is |Volume capacity is )[0-9]+( [KMGT]B)?/\1SIZE/
s/(Tape attribute: Vendor = ).*$/\1VENDOR/
# "Usage: /root/.cache/tapedesk/ltfs-.../bin/mkltfs <options>": where the program lies.
s/\/[^ ]*\/((mk)?ltfs(ck)?) /\1 /g

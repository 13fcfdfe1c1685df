# shellcheck shell=bash
# What a shared library takes of a device. Sourced.

# library_figures LIBRARY: one line with the size of a stripped library, and the number of places in
# it that the loader fills in when a program starts.
library_figures()
{
    local relocations
    relocations=$(LC_ALL=C readelf --relocs --wide "$1" | grep -c '^[0-9a-f]\{8,\} ')
    printf '%d bytes, %d relocations\n' "$(stat --format=%s "$1")" "$relocations"
}

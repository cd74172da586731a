#!/usr/bin/env bash
# Makes the Debian package with scripts/package from the build given, and
# looks at it as a person installing it meets it: its files in their Debian
# places, its dependencies, the program run from the unpacked package (never
# installed into this machine), the manual page rendered without a warning,
# the completions, and lintian.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
fail() { echo "package: $*" >&2; exit 1; }
for tool in lintian man unzip; do
    if ! command -v "$tool" >/dev/null; then
        echo "package: skipped, $tool is not installed (scripts/deps --test installs it)"
        exit 77
    fi
done

DECKWRIGHT_BUILD_DIR="$1" "$root/scripts/package" "$work"
debs=("$work"/deckwright_*.deb)
deb="${debs[0]}"
[[ ${#debs[@]} == 1 && -f "$deb" ]] || fail "scripts/package made no package"

files="$(dpkg-deb -c "$deb" | awk '{print $6}')"
for file in usr/bin/deckwright usr/share/applications/com.bramblefox.Deckwright.desktop \
    usr/share/metainfo/com.bramblefox.Deckwright.metainfo.xml usr/share/icons/hicolor/scalable/apps/deckwright.svg \
    usr/share/icons/hicolor/256x256/apps/deckwright.png usr/share/man/man1/deckwright.1.gz \
    usr/share/bash-completion/completions/deckwright usr/share/zsh/vendor-completions/_deckwright \
    usr/share/fish/vendor_completions.d/deckwright.fish usr/share/doc/deckwright/copyright \
    usr/share/doc/deckwright/changelog.gz; do
    grep -qx "./$file" <<<"$files" || fail "it lacks /$file"
done
# The tools it runs, the plugins it loads and the libraries it links; not
# Qt Test, which only the tests use, nor plugins it never loads.
depends="$(dpkg-deb -f "$deb" Depends)"
for package in zip gzip libqt6svg6 qt6-image-formats-plugins libqt6gui6 libqt6widgets6 libqt6multimedia6; do
    grep -Eq "(^|, )$package( |,|$)" <<<"$depends" || fail "it does not depend on $package: $depends"
done
for package in libqt6test6 qt6-qpa-plugins; do
    if grep -q "$package" <<<"$depends"; then fail "it depends on $package, which the program does not use"; fi
done

# Unpacked into a root of its own, the program runs from there.
dpkg -x "$deb" "$work/root"
program="$work/root/usr/bin/deckwright"
if readelf -S "$program" | grep -q '\.symtab'; then fail "the program is not stripped"; fi
version="$("$program" --version)"
[[ "$version" == "Deckwright $(dpkg-deb -f "$deb" Version)" ]] || fail "--version says: $version"
export XDG_RUNTIME_DIR="$work/runtime" XDG_CONFIG_HOME="$work/config"
mkdir -m 0700 "$work/runtime"
mkdir -p "$work/in/Talk.key" "$work/out"
printf '<key:presentation key:version="72007061400"><key:slide/></key:presentation>' | gzip >"$work/in/Talk.key/index.apxl.gz"
said="$("$program" check "$work/in/Talk.key")"
[[ "$said" == "$work/in/Talk.key: Keynote '08 package, convertible, "*", 1 slide" ]] || fail "check says: $said"
said="$("$program" convert --layout root --output "$work/out" "$work/in/Talk.key")"
[[ "$said" == "converted: $work/in/Talk.key -> $work/out/Talk.key" ]] || fail "convert says: $said"
unzip -Z1 "$work/out/Talk.key" | grep -qx index.apxl || fail "the converted file holds no index.apxl"

# The manual renders without a warning, with the sections a person looks for.
manual="$work/root/usr/share/man/man1/deckwright.1.gz"
warnings="$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$manual" 2>&1 >"$work/manual.txt")"
[[ -z "$warnings" ]] || fail "the manual page warns: $warnings"
for section in NAME SYNOPSIS DESCRIPTION COMMANDS OPTIONS "EXIT STATUS" FILES ENVIRONMENT PROMISES; do
    grep -qx "$section" "$work/manual.txt" || fail "the manual page has no $section"
done

# The bash completion offers the layouts, and packages and folders.
completed="$(cd "$work/in" && bash -c 'source "$1"; COMP_WORDS=(deckwright convert --layout ""); COMP_CWORD=3
    _deckwright; echo "${COMPREPLY[*]}"; COMP_WORDS=(deckwright check T); COMP_CWORD=2; _deckwright
    echo "${COMPREPLY[*]}"' sh "$work/root/usr/share/bash-completion/completions/deckwright")"
[[ "$completed" == $'reference root\nTalk.key' ]] || fail "the bash completion offers: $completed"

# No error and no warning from lintian.
lintian --fail-on error,warning "$deb" >"$work/lintian" 2>&1 || fail "lintian: $(cat "$work/lintian")"

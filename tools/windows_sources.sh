#!/usr/bin/env bash
# Debian has the libraries of the command not for Windows, but as sources: fetches and unpacks those of this machine's
# release into the folder named, by way of the mirrors that its packages come from. Needs no root. What is there already
# stays.
set -euo pipefail

PACKAGES=(cli11 fmtlib libsodium utf8proc xxhash)

into=$1
[ "$(cat "$into/complete" 2>/dev/null)" != "${PACKAGES[*]}" ] || exit 0
rm -rf "$into"
mkdir -p "$into/apt/lists/partial" "$into/apt/cache/archives/partial"
cd "$into"

# The release itself; what is added to it between two of its points is not kept for long.
# shellcheck disable=SC2016  # The words are apt's.
apt-get indextargets --format 'deb-src $(REPO_URI) $(CODENAME) main' 'Created-By: Packages' 'Origin: Debian' |
  grep -v -- '-[a-z]* main$' | sort -u >apt/sources.list
[ -s apt/sources.list ] || { echo "apt knows no mirror of Debian; try apt-get update"; exit 1; }

own_apt() {
  apt-get -qq -o Dir::Etc::SourceList="$PWD/apt/sources.list" -o Dir::Etc::SourceParts=- \
    -o Dir::State::Lists="$PWD/apt/lists" -o Dir::Cache="$PWD/apt/cache" -o APT::Sandbox::User="$(id -un)" "$@"
}
own_apt update
own_apt source "${PACKAGES[@]}"
for package in "${PACKAGES[@]}"; do mv "$package"-*/ "$package"; done
rm -rf apt ./*.dsc ./*.tar.*
echo "${PACKAGES[*]}" >complete

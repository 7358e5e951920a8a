#!/usr/bin/env bash
# package.sh FOLDER: Debian packages of the tree as it stands, in an empty folder of their own.
#
# What git does not know is left out, and all of it has the rights that git knows of and is as old as
# debian/changelog says, so that equal trees give equal packages.
set -euo pipefail
umask 022
cd "$(dirname "$0")/.."

folder=$1
name=$(dpkg-parsechangelog --show-field Source)-$(dpkg-parsechangelog --show-field Version)
rm -rf "$folder"
mkdir -p "$folder/$name"
git ls-files -z |
    tar --create --null --files-from=- --mode=u=rwX,go=rX --mtime="@$(dpkg-parsechangelog --show-field Timestamp)" |
    tar --extract --directory="$folder/$name"

cd "$folder/$name"
dpkg-buildpackage --no-sign --build=full

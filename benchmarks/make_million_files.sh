#!/bin/sh
# Makes the tree DIRECTORY: a million files in 60,000 directories, 300 packages of 199
# directories each. Every package has a .gitignore, as has the root. The files are empty:
# nothing that is compared reads them.
set -eu

directory=${1:?usage: make_million_files.sh DIRECTORY}
unfinished=$directory.unfinished
rm -rf "$unfinished"
mkdir -p "$unfinished"
cd "$unfinished"

names() {
  awk -v directories="$1" 'BEGIN {
    split("cpp h py md ts json o log", extensions, " ")
    for (package = 0; package < 300; ++package) {
      for (part = 0; part < 200; ++part) {
        # The first of the 200 is the package itself.
        path = sprintf("package_%03d", package)
        if (part > 0) path = path sprintf("/part_%03d", part)
        if (directories) {
          print path
          continue
        }
        count = 16 + (seen++ % 3 < 2)
        for (file = 0; file < count; ++file) {
          printf "%s/source_file_%02d.%s\n", path, file, extensions[1 + file % 8]
        }
      }
    }
  }'
}

names 1 | xargs mkdir -p
names 0 | xargs touch
printf '*.o\n/dist/\nnode_modules/\n' >.gitignore
for package in package_*; do printf '*.log\n/generated/\n' >"$package/.gitignore"; done
cd ..
mv "$unfinished" "$directory"

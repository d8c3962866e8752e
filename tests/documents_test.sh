#!/usr/bin/env bash
# Compares the generated parts of docs/ with what the programs say of themselves.
# usage: documents_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$1/scripts/update-docs" "$2" "$work"
for page in "$work"/*; do
  diff -u "$1/docs/${page##*/}" "$page" || { echo "write it anew with the target update_docs"; exit 1; }
done
echo "$(ls "$work" | wc -l) pages are as the programs say"

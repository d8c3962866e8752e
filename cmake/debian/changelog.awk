# Writes CHANGELOG.md as a Debian change log: awk -v package=NAME -v version=LAST -v contact=NAME_AND_MAIL -v date=RFC_2822.
# A heading is "## VERSION (DAY, DATE)", or "## Unreleased" for what follows the version that was last, on the date given.
function close_item(   words, n, i, line) {
  n = split(item, words, /[ \t]+/)
  line = "  *"
  for (i = 1; i <= n; i++) {
    if (length(line) + length(words[i]) >= 80) { print line; line = "   " }
    line = line " " words[i]
  }
  if (n) print line
  item = ""
}
function close_entry() {
  close_item()
  if (entry) printf "\n -- %s  %s\n\n", contact, entry_date
}

{ gsub(/`/, "") }
/^## / {
  close_entry()
  entry = $2
  if (entry == "Unreleased") { entry = version "+unreleased"; entry_date = date }
  else entry_date = substr($0, index($0, "(") + 1, index($0, ")") - index($0, "(") - 1) " 00:00:00 +0000"
  printf "%s (%s) unstable; urgency=medium\n\n", package, entry
  next
}
!entry { next }
/^- / { close_item(); item = substr($0, 3); next }
/^ *$/ { close_item(); next }
{ sub(/^ +/, ""); item = item (item ? " " : "") $0 }
END { close_entry() }

# Writes CHANGELOG.md as a Debian change log: awk -v package=NAME -v contact=NAME_AND_MAIL -v date=RFC_2822.
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
  if (version) printf "\n -- %s  %s\n\n", contact, date
}

{ gsub(/`/, "") }
/^## / { close_entry(); version = $2; printf "%s (%s) unstable; urgency=medium\n\n", package, version; next }
!version { next }
/^- / { close_item(); item = substr($0, 3); next }
/^ *$/ { close_item(); next }
{ sub(/^ +/, ""); item = item (item ? " " : "") $0 }
END { close_entry() }

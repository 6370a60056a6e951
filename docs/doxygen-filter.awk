# Doxygen input filter for the public headers. The headers document every declaration with
# plain // comments in the line(s) above it, or at the end of its line; this turns them into
# Doxygen comments without changing the number of any line, so warnings point at the real
# source lines:
#  - the comment block that opens the file becomes the file's documentation;
#  - the include guard becomes the markers that put everything in the file into the unit's
#    group (-v groups=FILE: lines "<header> <group>"; none for a header not listed);
#  - a comment block above several declarations documents each of them (one comment often
#    covers a family of overloads), the later ones through a copy of the text;
#  - a comment at the end of a declaration's line documents that declaration; NOLINT notes are
#    dropped;
#  - copy operations and destructors without a comment of their own point at the class
#    comment, which states every class's copy rule and what it owns;
#  - comments inside function bodies stay plain comments.
function indent_of(s) { match(s, /^ */); return RLENGTH }
function trim(s) { sub(/^[ \t]+/, "", s); sub(/[ \t]+$/, "", s); return s }
function code_of(s,   i) {  # the line without a trailing // comment
  i = index(s, "//")
  return i ? substr(s, 1, i - 1) : s
}
function count(s, ch,   n, i) {
  n = 0
  for (i = 1; i <= length(s); i++) if (substr(s, i, 1) == ch) n++
  return n
}
# Trailing comment of a declaration (or #define) line as ///<, NOLINT notes dropped.
function trailing(s,   i, code, text) {
  i = index(s, "//")
  if (!i) return s
  code = substr(s, 1, i - 1)
  text = trim(substr(s, i + 2))
  if (text ~ /^NOLINT/) return code
  if (trim(code) ~ /[;,]$/ || trim(code) ~ /^#define /) return code "///< " text
  return s
}
BEGIN {
  if (groups != "")
    while ((getline entry < groups) > 0) {
      split(entry, field, " ")
      group_of[field[1]] = field[2]
    }
}
# Text for a copy operation or destructor that has no comment of its own; "" for others.
function special(t,   a, b) {
  if (t ~ /^(virtual )?~/) return "Destroys the object; the class comment says what it owns."
  if (t ~ /= delete;/) return "Deleted: the class is not copyable."
  if (t ~ /operator=\(const [A-Za-z_<>]+ ?&/) return "Assignment, by the class's copy rule."
  if (match(t, /^(explicit )?[A-Za-z_]+\(const /)) {
    a = substr(t, 1, RLENGTH - 7)
    sub(/^explicit /, "", a)
    b = substr(t, RLENGTH + 1)
    sub(/[<&].*/, "", b)
    sub(/ .*/, "", b)
    if (a == b) return "Copy construction, by the class's copy rule."
  }
  return ""
}
{ line[NR] = $0 }
END {
  n = NR
  name = FILENAME
  sub(/.*\//, "", name)
  if (name !~ /\.h$/) {  # README.md, units.dox: as they are
    for (i = 1; i <= n; i++) print line[i]
    exit
  }
  group = (name in group_of) ? group_of[name] : ""
  # The opening comment block documents the file.
  first = 1
  while (first <= n && line[first] ~ /^\/\/( |$)/) first++
  for (i = 1; i < first; i++) {
    line[i] = "/" line[i]
    if (i == first - 1) line[i] = line[i] " \\file"
  }
  depth = 0        # brace depth
  body = 0         # depth at which a function body started (0: not in one)
  block = ""       # text of the comment block being applied
  block_indent = -1
  decls = 0        # declarations started since that block
  open_decl = 0    # inside a declaration that spans several lines
  for (i = first; i <= n; i++) {
    s = line[i]
    t = trim(s)
    if (t ~ /^#ifndef ZUSTD_.*_H$/) {
      line[i] = group == "" ? "" : "/** \\addtogroup " group
      continue
    }
    if (t ~ /^#define ZUSTD_.*_H$/) { line[i] = group == "" ? "" : "@{ */"; continue }
    if (t ~ /^#endif  \/\/ ZUSTD_.*_H$/) { line[i] = group == "" ? "" : "/** @} */"; continue }
    if (t ~ /^#/ && t !~ /^#define /) continue
    if (t == "") open_decl = 0
    in_body = body > 0
    if (t ~ /^\/\//) {
      if (!in_body) {
        if (block_indent != indent_of(s) || decls > 0) { block = ""; decls = 0; block_lines = 0 }
        block_lines++
        block_indent = indent_of(s)
        block = block == "" ? substr(t, 3) : block substr(t, 3)
        line[i] = substr(s, 1, indent_of(s)) "/" t
      }
      continue
    }
    code = code_of(s)
    if (!in_body) {
      if (t == "" || t ~ /^(public|private|protected):/ || indent_of(s) < block_indent) {
        block = ""; block_indent = -1; decls = 0; block_lines = 0
      } else if (!open_decl && t !~ /^[}:{)]/ && t !~ /^template *</) {
        under_block = indent_of(s) == block_indent
        if (under_block) decls++
        text = !under_block || decls >= 2 ? special(t) : ""
        if (text == "" && under_block && decls >= 2)  # a one-line comment reads as a brief
          text = (block_lines == 1 ? "\\brief " : "") trim(block)
        # In front of the declaration, so that a multi-line one is covered too; a comment at
        # the end of its line is more specific and wins.
        if (text != "" && !(index(s, "//") && trim(code_of(s)) ~ /[;,]$/))
          line[i] = substr(s, 1, indent_of(s)) "/** " text " */ " t
      }
    }
    before = depth
    opens = count(code, "{"); closes = count(code, "}")
    if (!in_body && opens > closes && code !~ /(class|struct|union|enum|namespace)[ \t]/ &&
        code !~ /^[ \t]*extern "C"/)
      body = before + 1
    depth += opens - closes
    if (body && depth < body) body = 0
    if (!in_body && body == 0) {
      ends = trim(code) ~ /[;}]$/ || trim(code) ~ /^#define /
      if (ends) {
        open_decl = 0
        if (index(s, "//")) line[i] = trailing(line[i])
      } else if (trim(code) ~ /\{$/ || t ~ /^(public|private|protected):/) {
        open_decl = 0  # a class or struct opens: its members follow
      } else if (t != "" && t !~ /^template *</) {
        open_decl = 1
      }
    }
  }
  for (i = 1; i <= n; i++) print line[i]
}

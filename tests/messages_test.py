"""Compares docs/messages.md with the messages in the source: each must have the other. Argument: source directory."""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
STRING = r'"(?:[^"\\]|\\.)*"'
TOKEN = re.compile(rf"//[^\n]*|static_assert\([^;]*;|(?:{STRING}\s*)+|'(?:[^'\\]|\\.)'")
FIELD = re.compile(r'%[-0-9.]*[a-z]')
PREFIX = re.compile(r'^dspset: (\[ERROR\] )?')
STREAMS = {'std::printf(': 'out', 'std::fprintf(stderr,': 'err', 'writeSyslog("Camera control",': 'log'}


def source_messages():
    """(file, text, stream or None) of every string that reads like a message: with a blank, or ending its line."""
    for path in sorted(p for d in ('camera', 'dsp', 'workers') for p in (root / d).glob('*.cpp')):
        code = path.read_text()
        for match in TOKEN.finditer(code):
            if not match[0].startswith('"'):
                continue
            raw = ''.join(part[1:-1] for part in re.findall(STRING, match[0]))
            text = raw.replace('\\t', '\t').replace('\\n', '')
            if text != 'Camera control' and (' ' in raw or raw.endswith('\\n')):
                before = re.sub(r'\s+$', '', code[:match.start()])
                yield path.name, text, next((s for call, s in STREAMS.items() if before.endswith(call)), None)


def documented_messages():
    for line in (root / 'docs/messages.md').read_text().splitlines():
        row = re.match(r'\| `(.*?)` \| (\w+) \|', line)
        if row:
            yield row[1], row[2]


def matches(source_text, text):
    """Whether a line of the source's format reads like `text`; its own fields may stand for themselves."""
    if source_text.startswith('%s: '):
        source_text = source_text.replace('%s', 'dspset', 1)
    return re.fullmatch('.+?'.join(map(re.escape, FIELD.split(source_text))), text) is not None


def is_frame(source_text):
    """A format that only puts a prefix before another text."""
    return re.search('[A-Za-z]', FIELD.sub('', source_text.replace('[ERROR]', ''))) is None


documented = list(documented_messages())
source = [m for m in source_messages() if not is_frame(m[1])]
errors = []
for name, text, stream in source:
    found = [s for t, s in documented if matches(text, t) or matches(text, PREFIX.sub('', t))]
    if not found:
        errors.append(f'{name}: not in docs/messages.md: {text}')
    elif stream is not None and stream not in found:
        errors.append(f'{name}: goes to {stream}, docs/messages.md says {found[0]}: {text}')
for text, _ in documented:
    if not any(matches(s, text) or matches(s, PREFIX.sub('', text)) for _, s, _ in source):
        errors.append(f'docs/messages.md: not in the source: {text}')
print('\n'.join(errors) or f'{len(documented)} messages, as in the source')
sys.exit(bool(errors) or not documented)

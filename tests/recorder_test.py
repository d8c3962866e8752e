"""Records programs, and takes from them what a recorder needs. Arguments: source directory, build directory."""
import json
import os
import pathlib
import random
import signal
import subprocess
import sys
import time
import unittest

from camera_sandbox import BUILD, CAMCTL, CONFIG, Camera, camctl, enter_sandbox, store

RECORDER = BUILD / 'lib/camctl/libcamera_ctrl_recorder.so'
FILE = pathlib.Path('/tmp/recordings/a.jsonl')
MEMBERS = {
    'start': {'format', 'version', 'wall', 'process', 'program', 'word_bits', 'stored', 'files'},
    'answer': {'number', 'result'},
    'exchange': {'thread', 'command', 'reply', 'entries', 'took'},
    'stored': {'offset', 'bytes'}, 'file': {'path', 'bytes'}, 'lost': {'lines'}, 'end': set(),
}

# A program that has loaded the library by itself: ask() runs a register command where there is no camera, so that its
# exchange fails. Its results are its output.
PROGRAM = f"""
import ctypes, os, sys
library = ctypes.CDLL('{BUILD}/lib/libcamera_ctrl.so')
dsp = ctypes.create_string_buffer(4096)
library._ZN5ipcam6camera10DspCommandC1Ev(dsp)
run = library._ZN5ipcam6camera10DspCommand8do_debugEPcS2_
def ask(times):
    for _ in range(times): print(run(dsp, b'r,10,9', ctypes.create_string_buffer(32)), flush=True)
"""


def recorded(*command, limit=1 << 20, **options):
    """A started process that is recorded as the environment says, without camctl."""
    environment = {**os.environ, 'LD_PRELOAD': str(RECORDER), 'CAMERA_CTRL_RECORD_FILE': str(FILE),
                   'CAMERA_CTRL_RECORD_LIMIT': str(limit)}
    return subprocess.Popen(command, env=environment, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            **options)


def run(code, **options):
    with recorded(sys.executable, '-c', PROGRAM + code, **options) as process:
        output, errors = process.communicate(timeout=60)
    assert process.returncode == 0, errors
    return output.split(), errors


def events(path=FILE, cut=False):
    """What a file holds: whole lines of the stated members, the first of them its start. Only when its program was
    killed may the last line be cut off."""
    *lines, rest = path.read_text(encoding='ascii').split('\n')
    assert cut or rest == '', rest
    found = [json.loads(line) for line in lines]
    for event in found:
        kind = event['event']
        members = MEMBERS[kind] if kind != 'request' else {'number', 'thread'} | (
            {'raw', 'raw_len'} if 'raw' in event else {'code', 'name', 'value'})
        assert members | {'event', 't'} <= event.keys(), event
    assert [event['event'] for event in found].count('start') == (1 if found else 0)
    assert not found or found[0]['event'] == 'start'
    return found


def of_kind(found, kind):
    return [event for event in found if event['event'] == kind]


class RecorderTest(unittest.TestCase):
    def setUp(self):
        subprocess.run(['rm', '-rf', FILE.parent], check=True)
        FILE.parent.mkdir()

    def test_a_session_is_recorded(self):
        store('saturation = 3\ncolor = color\n')
        pathlib.Path('/var/tmp/AdjCamera.txt').write_bytes(b'\2\0factory')
        with Camera():
            result = camctl('record', '-o', str(FILE), '--', CAMCTL, 'shell', text_in=(
                'set saturation=4\nget iris-hold\nconfig set saturation=2\nset saturation=5\n'))
        self.assertEqual(result.returncode, 0, result.stderr)
        found = events()
        self.assertEqual(found[0]['files']['/var/tmp/AdjCamera.txt'], b'\2\0factory'.hex())
        self.assertEqual(found[-1]['event'], 'end')
        requests = [event for event in of_kind(found, 'request') if event.get('name')]
        self.assertEqual([(event['name'], event['value']) for event in requests],
                         [('saturation', 4), ('iris-hold', 0), ('saturation', 5)])
        [change] = of_kind(found, 'stored')
        self.assertEqual((change['offset'], change['bytes']), (48, '02'))
        self.assertLess(found.index(change), found.index(requests[2]))
        number = requests[0]['number']
        lines = [event for event in found if number in (event.get('number'), event.get('request'))]
        self.assertEqual([event['event'] for event in lines], ['request', 'exchange', 'exchange', 'answer'])
        self.assertEqual([entry for event in lines[1:3] for entry in event['entries']], [
            {'type': kind, 'category': 10, 'byte': 9, 'name': 'saturation', 'values': values, 'status': 1}
            for kind, values in ((1, '00'), (2, 'a0'))])
        self.assertEqual([event.get('value') for event in of_kind(found, 'answer') if event['number'] ==
                          requests[1]['number']], [0])

    def test_requests_of_many_threads(self):
        store('color = color\n')
        with Camera():
            process = recorded(BUILD / 'bin/server')
            self.assertIn('\n0 steps not as expected', process.communicate(timeout=60)[0])
        found = events()
        requests, answers = of_kind(found, 'request'), of_kind(found, 'answer')
        self.assertEqual([event['number'] for event in requests], list(range(1, 17)))
        self.assertEqual([event['number'] for event in answers], list(range(1, 17)))
        self.assertEqual(len({event['thread'] for event in requests}), 5)
        self.assertEqual([(requests[i]['raw'], answers[i]['reply']) for i in (0, 2)],
                         [('w,200,9,0xff,0xa0', '00'), ('r,200,9', 'a5')])

    def test_an_answer_is_written_before_its_caller_goes_on(self):
        store('color = color\n')
        with Camera():
            recorded(sys.executable, '-c', PROGRAM + """
ctypes.CDLL(library._name, ctypes.RTLD_GLOBAL)
library = ctypes.CDLL(None)  # so that the recorder comes first
library._ZN5ipcam6camera15new_camera_ctrlEPNS_4comm10s_port_infE((ctypes.c_int32 * 4)())
for value in range(1, 7):
    library._ZN5ipcam6camera15cam_cgi_commandEPNS0_13s_cam_cgi_cmdE((ctypes.c_int32 * 7)(39, value))
os.kill(os.getpid(), 9)
""").communicate(timeout=60)
        self.assertEqual([event['result'] for event in of_kind(events(), 'answer')], [0] * 6)

    def test_a_killed_program_leaves_a_readable_file(self):
        readable = 0
        for _ in range(200):
            self.setUp()
            process = recorded(sys.executable, '-c', PROGRAM + "while True: ask(1)", limit=65536)
            process.stdout.readline()
            time.sleep(random.uniform(0, 0.03))
            process.kill()
            process.communicate()
            readable += any([events(path, cut=True) for path in FILE.parent.iterdir()])
        # Killed before its second exchange a program leaves no line: on a busy machine a few of them.
        self.assertGreater(readable, 150)

    def test_a_full_disk_costs_lines_only(self):
        subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=64k', 'none', FILE.parent], check=True)
        try:
            (FILE.parent / 'filler').write_bytes(bytes(32 << 10))
            results, _ = run(f"ask(500); os.remove('{FILE.parent}/filler'); ask(50)")
            self.assertEqual(results, ['-1'] * 550)
            found = events()
        finally:
            subprocess.run(['umount', FILE.parent], check=True)
        lost = sum(event['lines'] for event in of_kind(found, 'lost'))
        self.assertGreater(lost, 0)
        self.assertEqual(lost + len(of_kind(found, 'exchange')), 550)

    def test_the_files_of_a_recording(self):
        for code, options, files, exchanges in (
                ('ask(1000)', {'limit': 65536}, ['a.jsonl', 'a.jsonl.1'], None),  # begins anew
                ('import resource; resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000)); ask(300)', {},
                 ['a.jsonl', 'a.jsonl.1'], None),
                ('ask(2); os.system(sys.executable + " -c \'print(1)\'")', {}, ['a.jsonl'], 2),
                ('ask(2)\nif os.fork() == 0: ask(3); sys.exit()\nos.wait(); ask(2)', {}, ['a.jsonl'], 4),
                ('if os.fork() == 0: ask(3); sys.exit()\nos.wait()', {}, ['a.jsonl'], 3),  # a server in the background
                ('ask(2); os.closerange(3, 4096); f = open("/tmp/own", "w"); ask(1); assert f.tell() == 0', {},
                 ['a.jsonl', 'a.jsonl.1'], 1),
                ('ask(1)', {'limit': 'much'}, [], None)):
            with self.subTest(code=code):
                self.setUp()
                _, errors = run(code, **options)
                self.assertEqual(sorted(path.name for path in FILE.parent.iterdir()), files, errors)
                self.assertEqual('is not recorded to' in errors, not files, errors)
                for path in FILE.parent.iterdir():
                    found = events(path)
                    self.assertLessEqual(path.stat().st_size, options.get('limit', 1 << 20))
                    self.assertEqual(exchanges or len(of_kind(found, 'exchange')), len(of_kind(found, 'exchange')))
                    self.assertTrue(all(event['reply'] is None for event in of_kind(found, 'exchange')))
        self.setUp()
        for number in range(10):
            _, errors = run('ask(1)')
        self.assertEqual(len(list(FILE.parent.iterdir())), 9)
        self.assertIn('File exists', errors)

    def test_camctl_refuses_what_cannot_be_recorded(self):
        FILE.write_text('')
        for arguments, message in ((['-o', str(FILE), '--', 'true'], 'there already'),
                                   (['-o', '/nowhere/a', '--', 'true'], 'No such file or directory'),
                                   (['-o', f'{FILE}b', '--', './nothing'], './nothing: No such file'),
                                   (['-o', f'{FILE}b', '--limit', '5', '--', 'true'], '--limit'),
                                   ([], 'required')):
            result = camctl('record', *arguments)
            self.assertEqual(result.returncode, 2, result)
            self.assertIn(message, result.stderr)
        result = camctl('record', '-o', f'{FILE}b', '--', 'sh', '-c', 'echo out; kill -TERM $$')
        self.assertEqual((result.returncode, result.stdout), (-signal.SIGTERM, 'out\n'))


if __name__ == '__main__':
    enter_sandbox()
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])

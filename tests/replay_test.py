"""Records sessions with the recorder, and uses camctl recording and camctl replay on them and on tests/data/session.rec.
Arguments: source directory, build directory. With SCRIPT behind them it is the recorded server program."""
import concurrent.futures
import ctypes
import json
import os
import pathlib
import subprocess
import sys
import time
import unittest.mock

from camera_sandbox import BUILD, CAMCTL, CAMSIM, SETTINGS, SOURCE, Camera, camctl, enter_sandbox, store

SESSION = SOURCE / 'tests/data/session.rec'
# Every request with a handler, on two threads; only one of them switches the readout, which takes a second.
ALL = """31=3 31=2 b:33=7 64=0 ~0.6 33=6 34=4 35=2 37=2 39=4 b:40=5 41=9 42=8 51=0 61=1 67=1 71=1 72=2 73=9 75=5 74=0
    b:62=0 76=0 77=34 80=61 81=-1 82=3 83=-1 36=1 68=0 79=0 b:r,10,9; w,200,3,15,7; 39=7"""
FAULTS = """no_reply late_reply late_doorbell reply_255 foreign_pid wrong_status wrong_length_byte count_too_small
    count_too_large negative_count length_too_large negative_length torn_entry signal_without_reply reply_without_signal
    extra_signals empty_reply""".split()


def serve(script):
    """The server program: CODE=VALUE is a request, NAME=VALUE changes the stored settings, other words are raw register
    commands, ~S sleeps, b: is another thread, ^ stops the library and starts it again."""
    ctypes.CDLL(str(BUILD / 'lib/libcamera_ctrl.so'), ctypes.RTLD_GLOBAL)
    library = ctypes.CDLL(None)  # so that what is preloaded comes first
    threads = {letter: concurrent.futures.ThreadPoolExecutor(1) for letter in 'ab'}
    start = library._ZN5ipcam6camera15new_camera_ctrlEPNS_4comm10s_port_infE
    stop = library._ZN5ipcam6camera16delete_camera_IFEPNS0_15CameraInterfaceE
    start((ctypes.c_int32 * 4)())
    for word in script.split():
        thread, word = threads['b' if word.startswith('b:') else 'a'], word.removeprefix('b:')
        if word.startswith('~'):
            time.sleep(float(word[1:]))
        elif word == '^':
            stop(None)
            start((ctypes.c_int32 * 4)())
        elif ',' in word:
            record = bytearray(532)
            record[4:4 + len(word)] = word.encode()
            record[260] = len(word)
            call, record = 'cam_ccd_debugEPNS0_12s_ccdlsi_dbgE', (ctypes.c_char * 532).from_buffer(record)
            thread.submit(library['_ZN5ipcam6camera13' + call], record).result()
        elif word[0].isalpha():
            subprocess.run([CAMCTL, 'config', 'set', word], check=True, stdout=subprocess.DEVNULL)
        else:
            record = (ctypes.c_int32 * 7)(*map(int, word.split('=')))
            thread.submit(library._ZN5ipcam6camera15cam_cgi_commandEPNS0_13s_cam_cgi_cmdE, record).result()
    stop(None)


def record(name, script, *options):
    store(SETTINGS)
    pathlib.Path(name).unlink(missing_ok=True)
    with Camera(*options) as camera:
        result = camctl('record', '-o', name, '--', sys.executable, __file__, str(SOURCE), str(BUILD), script)
    assert result.returncode == 0, result.stderr
    for option in options[1::2]:
        assert any(f' !{option.split(":")[0]} ' in line for line in camera.lines), (option, camera.lines)
    return name


class ReplayTest(unittest.TestCase):
    def check(self, code, *arguments, under=()):
        result = camctl(*arguments, under=under)
        self.assertEqual(result.returncode, code, [result.args, result.stdout, result.stderr[-2000:]])
        return result

    def test_a_session_over_all_requests_is_the_same_when_it_is_replayed(self):
        self.assertRegex(self.check(0, 'replay', SESSION).stdout, r'^the same: \d+ exchanges\n$')
        self.check(0, 'replay', SESSION, '--until', '12', '--speed', 'real')
        with open('/var/tmp/AdjCamera.txt', 'wb') as file:  # a worker that goes on all the time
            file.write(bytes([1, 0, 0x37, *range(45)]))
        self.check(0, 'recording', 'diff', record('a.rec', '39=4 ~1.2 68=0'), record('b.rec', '39=4 68=0'))
        self.check(1, 'recording', 'diff', 'a.rec', record('c.rec', '39=4 68=1'))
        self.check(0, 'replay', 'a.rec')

    def test_a_request_that_was_not_served_is_left_out(self):
        *lines, end = SESSION.read_text().splitlines(keepends=True)
        waiting = {'event': 'request', 't': 2903000, 'number': 34, 'thread': 1, 'code': 39, 'name': 'saturation', 'value': 2}
        answer = {'event': 'answer', 't': 2903900, 'number': 34, 'served': False, 'result': -1}
        pathlib.Path('g.rec').write_text(''.join(lines) + f'{json.dumps(waiting)}\n{json.dumps(answer)}\n' + end)
        self.check(0, 'replay', 'g.rec')
        pathlib.Path('g.rec').write_text(''.join(lines) + f'{json.dumps(waiting)}\n{json.dumps(answer | {"served": True})}\n' + end)
        self.assertRegex(self.check(1, 'replay', 'g.rec').stdout, r'request 34, line 2: different')

    def test_a_restart_finds_what_was_changed_and_a_file_that_begins_later_is_replayed_too(self):
        name = record('i.rec', '39=4 40=5 64=0 33=6 onepush_rgain=300 39=2 ^ saturation=2 ^ 39=5 64=0 ~0.3')
        start, *lines = map(json.loads, pathlib.Path(name).read_text().splitlines())
        self.assertEqual([(event['offset'], event['bytes']) for event in lines if event['event'] == 'stored'],
                         [(168, '2c01'), (48, '02')])
        kinds = [(event['event'], event.get('number', event.get('request'))) for event in lines]
        refused = [{'event': 'request', 't': lines[-1]['t'], 'number': 99, 'thread': 1, 'code': 64, 'value': 0},
                   {'event': 'answer', 't': lines[-1]['t'], 'number': 99, 'served': False, 'result': -1}]
        at = next(i for i, event in enumerate(lines) if event.get('bytes') == '02')
        lines[at:at] = refused  # by a shutdown
        kinds[at:at] = [('request', 99), ('answer', 99)]
        stored = bytearray.fromhex(start['stored'])
        for place in (0, kinds.index(('request', 2)), kinds.index(('exchange', 2)), kinds.index(('answer', 5))):
            if place > kinds.index(('stored', None)):
                stored[168:170] = 0x2c, 1
            start['stored'] = stored.hex()
            pathlib.Path('j.rec').write_text('\n'.join(map(json.dumps, [start, *lines[place:]])) + '\n')
            self.check(0, 'replay', 'j.rec')

    def test_a_changed_library_differs(self):
        for change, shown in (('table', r'13/0x00=0x06 .* 13/0x00=0x07 '), ('order', 'r 16/0x06 .* r 11/0x')):
            changed = BUILD / f'changed/{change}/libcamera_ctrl.so.1'
            result = self.check(1, 'replay', SESSION, under=('env', f'LD_PRELOAD={changed}'))
            self.assertRegex(result.stdout, rf'start-up 1, line \d+: different\n(.*\n)*! .*{shown}')

    def test_a_changed_record_or_file_differs(self):
        start, *lines = SESSION.read_text().splitlines(keepends=True)
        start = json.loads(start)
        stored = bytearray.fromhex(start['stored'])
        stored[48] = 5  # saturation
        pathlib.Path('d.rec').write_text(json.dumps(start | {'stored': stored.hex()}) + '\n' + ''.join(lines))
        self.assertRegex(self.check(1, 'replay', 'd.rec').stdout, '! w 10/0x09=0x80 .* w 10/0x09=0xc0')
        self.assertIn('! saturation = 3 ', self.check(1, 'recording', 'diff', SESSION, 'd.rec').stdout)
        start['files']['/var/tmp/AdjCamera.txt'] = '0100' + 46 * '09'
        pathlib.Path('d.rec').write_text(json.dumps(start) + '\n' + ''.join(lines))
        self.check(1, 'replay', 'd.rec')

    def test_every_fault_is_played_again(self):
        for first in range(0, len(FAULTS), 6):
            faults = FAULTS[first:first + 6]
            options = [word for i, fault in enumerate(faults) for word in ('--fault', f'{fault}:{34 + 4 * i}')]
            name = record('f.rec', '39=1 40=1 67=1 34=2 39=2 40=2 67=2 34=3 39=3 40=3 67=3 34=4 b:r,10,9; 51=0', *options)
            self.check(0, 'replay', name)

    def test_a_camera_that_dies_and_comes_again_is_played_again(self):
        pathlib.Path('mortal').write_text(f'#!/bin/sh\n{CAMSIM} "$@"\nexec {CAMSIM} --trace\n')
        os.chmod('mortal', 0o755)
        for fault in ('die_before', 'die_during', 'die_after', 'die_after_doorbell'):
            with unittest.mock.patch('camera_sandbox.CAMSIM', '/tmp/mortal'):
                name = record('h.rec', '39=1 39=2 40=2 ~0.5 39=3 40=3', '--fault', f'{fault}:34')
            self.check(0, 'replay', name)

    def test_what_can_be_read_of_a_broken_file_is_shown(self):
        lines = SESSION.read_text().splitlines(keepends=True)
        broken = ['{"event":"answer","t":1,"number":4294967297,"result":0}\n', '[' * 4000 + '\n', '\0\n',
                  '{"event":"stored","t":1,"offset":879,"bytes":"0102"}\n', '{"event":"file","t":1,"path":"/etc/x","bytes":""}\n']
        pathlib.Path('e.rec').write_text(''.join(lines[:20] + broken + lines[20:])[:-20])
        result = self.check(2, 'recording', 'show', 'e.rec', '--register', 'sharpness')
        self.assertRegex(result.stdout, r' request \d+ sharpness=5 .* sharpness=0xaa')
        for number in (21, 22, 23, 24, 25, len(lines) + 5):
            self.assertIn(f'e.rec line {number}: ', result.stderr)
        for bad in (__file__, '/dev/zero', 'none'):
            self.check(2, 'replay', bad)
        pathlib.Path('e.rec').write_text(''.join(lines[1:]))
        self.check(2, 'replay', 'e.rec')

    def test_show_stats_and_chrome(self):
        shown = self.check(0, 'recording', 'show', SESSION).stdout
        self.assertRegex(shown, r'start-up 1 .*\n(.*\n)*.* request \d+ wb=outdoor .* wb_mode=0x04\n')
        self.assertRegex(shown, r'one-push measurement 1 ')
        stats = json.loads(self.check(0, 'recording', 'show', SESSION, '--stats', '--json').stdout)['results']
        self.assertEqual([(row['count'], row['failed']) for row in stats if row['name'] in ('color', 'dn-hys')], [(2, 0), (1, 1)])
        trace = json.loads(self.check(0, 'recording', 'chrome', SESSION).stdout)
        requests = [event for event in trace if event['name'].startswith('request ')]
        serving = [event for event in requests if event['name'].endswith(' saturation=4')]
        self.assertEqual(len({event['tid'] for event in serving}), 2)
        self.assertTrue(any(event['cat'] == 'failed' for event in requests))


if __name__ == '__main__':
    if len(sys.argv) > 3:
        sys.exit(serve(sys.argv[3]))
    enter_sandbox()
    if os.environ.get('CAMERA_RECORD_SESSION'):
        subprocess.run([CAMSIM, '--factory'], check=True, capture_output=True)
        pathlib.Path(os.environ['CAMERA_RECORD_SESSION']).write_bytes(pathlib.Path(record('s.rec', ALL)).read_bytes())
        sys.exit()
    unittest.main(argv=sys.argv[:1], verbosity=2)

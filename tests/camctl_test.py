"""Uses camctl against a running camsim, as a person would. Arguments: source directory, build directory."""
import concurrent.futures
import functools
import json
import os
import pathlib
import pty
import re
import signal
import subprocess
import sys
import time
import unittest

from camera_sandbox import BUILD, CAMCTL, CAMSIM, CONFIG, SETTINGS, SOURCE, Camera, camctl, enter_sandbox, store


def on_terminal(command, answer='', **environment):
    """Exit code and output of a command whose input and output are a terminal."""
    child, terminal = pty.fork()
    if child == 0:
        os.execvpe(command[0], command, {**os.environ, **environment})
    os.write(terminal, answer.encode())
    output = b''
    try:
        while piece := os.read(terminal, 4096):
            output += piece
    except OSError:
        pass  # the terminal goes with its last user
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), output.decode()


def traffic_of(*arguments):
    store(SETTINGS)
    with Camera() as camera:
        result = camctl(*arguments)
    return result, camera.trace


class CamctlTest(unittest.TestCase):
    def setUp(self):
        store(SETTINGS)
        for file in pathlib.Path('/var/tmp').iterdir():
            file.unlink()

    def check(self, result, code, stderr=None):
        self.assertEqual(result.returncode, code, result.args + [result.stdout, result.stderr])
        if stderr is not None:
            self.assertIn(stderr, result.stderr)
        return result

    def results(self, *arguments, code=0):
        document = json.loads(self.check(camctl(*arguments, '--json'), code).stdout)
        self.assertEqual('error' in document, code != 0)
        return document['results']

    def test_set_sends_the_request_and_shows_what_was_written(self):
        result, trace = traffic_of('set', 'saturation=4')
        self.assertEqual(self.check(result, 0).stderr, '')
        self.assertEqual(result.stdout, 'saturation: 3 -> 4\n'
                         '  10/0x09  saturation              mask 0xff  0x80 -> 0xa0\n')
        self.assertEqual(trace[-3:], ['r 10/0x09 -> 03 01 80', 'w 10/0x09=0xa0 -> 02 01', 'r 10/0x09 -> 03 01 a0'])

    def test_what_a_worker_writes_meanwhile_is_not_the_requests(self):
        subprocess.run([CAMSIM, '--factory'], check=True, capture_output=True)  # starts the worker of register 9/3
        result, trace = traffic_of('set', 'contrast=0', 'dnmode=on', 'contrast=1')
        self.assertEqual(re.findall(r'^(\S+: .*)$', self.check(result, 0).stdout, re.M),
                         ['contrast: 3 -> 0', 'dnmode: on -> on', 'contrast: 0 -> 1'])
        self.assertTrue(any(line.startswith('w 9/0x03') for line in trace[-15:]), trace)
        self.assertNotIn('9/0x03', result.stdout)

    def test_dry_run_shows_the_same_writes_and_writes_nothing(self):
        result, trace = traffic_of('set', '--dry-run', 'saturation=4', 'iris-hold=toggle')
        self.check(result, 0)
        self.assertIn('iris-hold: off -> on\n', result.stdout)
        self.assertIn('  10/0x09  saturation              mask 0xff  0x80 -> 0xa0\n', result.stdout)
        self.assertTrue(trace and all(line.startswith('r ') for line in trace), trace)
        self.assertEqual(self.results('config', 'show', 'hold_iris_open')[0]['value'], 0)

    def test_dry_run_starts_from_the_real_registers(self):
        with Camera('--set', '10/0x0a=2'):
            shown = self.results('set', '--dry-run', 'color=monochrome')
        self.assertEqual([(w['mask'], w['old'], w['new']) for w in shown[0]['registers']], [(3, 2, 3)])

    def check_values(self, part):
        subprocess.run([CAMSIM, '--factory'], check=True, capture_output=True)
        session, refused = [], []
        settings = [row for row in self.results('list') if row['kind'] == 'setting']
        for row in settings[part::3]:
            name = row['name']
            values = list(row['words']) if 'words' in row else row['range']
            numbers = list(row['words'].values()) if 'words' in row else row['range']
            if name == 'force-binning':
                values = ['on', 'end']
            elif 'binning' in name and name != 'binning-mode':
                values = values[:1]  # a second each
            session += [f'set {name}={value}' for value in values]
            refused += [f'{name}={min(numbers) - 1}', f'{name}={max(numbers) + 1}', f'{name}=', f'{name}=x']
        with Camera():
            self.check(camctl('shell', text_in='\n'.join(session)), 0)
        for assignment in refused:
            self.check(camctl('set', 'saturation=3', assignment), 2, assignment)

    # In three parts, which run at a time.
    test_every_value_of_every_setting_is_accepted_and_those_beside_are_not_1 = functools.partialmethod(check_values, 0)
    test_every_value_of_every_setting_is_accepted_and_those_beside_are_not_2 = functools.partialmethod(check_values, 1)
    test_every_value_of_every_setting_is_accepted_and_those_beside_are_not_3 = functools.partialmethod(check_values, 2)

    def test_exit_codes(self):
        _, trace = traffic_of('set', 'saturation=4')
        read, write = len(trace) - 3, len(trace) - 2
        idle = ()
        for options, arguments, code, message in [
                (idle, ['set', 'binning=on'], 1, 'refused (needs the white-balance adjustment file'),
                (idle, ['do', 'onepush'], 0, ''),
                ((f'--fault=reply_255:{read}',), ['set', 'saturation=4'], 1, "set saturation=4: the image processor's CPU did"),
                ((f'--fault=wrong_status:{write}',), ['set', 'saturation=4'], 1, 'set saturation=4: '),
                (('--fault=reply_255:0:3',), ['reg', 'read', '10/9'], 1, "reg read: the image processor's CPU"),
                (('--fault=reply_255:0:1',), ['reg', 'read', '10/9'], 0, 'repeating it, 2 of 3'),
                (('--fault=wrong_status',), ['reg', 'read', '10/9', '--no-retry'], 1, 'reg read: the camera refused'),
                # Each of the five attempts is followed by a second's sleep, which is no wait for a reply.
                ((f'--fault=wrong_status:{read}:5',), ['set', 'iris-hold=on'], 1, 'iris-hold=on: the camera refused'),
                ((f'--fault=no_reply:{read}',), ['set', 'saturation=4'], 3, 'set saturation=4: no reply'),
                ((f'--fault=no_reply:{write}',), ['set', 'saturation=4'], 3, 'set saturation=4: no reply'),
                (('--fault=no_reply',), ['reg', 'write', 'saturation=1'], 3, 'reg write: no reply'),
                (('--fault=no_reply',), ['doctor'], 3, 'exchange'),
                (idle, ['reg', 'watch', 'hue', '--count=1', '--timeout=1', '--interval=60000'], 3, '0 of 1 changes seen'),
                (('--fault=die_before',), ['reg', 'read', 'saturation'], 4, 'which is gone'),
                (idle, ['set', 'saturaton=3'], 2, 'no setting saturaton, did you mean saturation'),
                (idle, ['set', 'wb=outdor'], 2, 'did you mean outdoor'),
                (idle, ['set', 'shutter=3'], 2, 'use camctl config set shutter_speed=VALUE'),
                (idle, ['set', 'saturation=9'], 2, '9 is not 0 to 6'),
                (idle, ['set', 'rgain=5'], 0, 'no effect now: has an effect only in white-balance mode manual'),
                (idle, ['set', 'wb=manual', 'rgain=5', '--strict'], 0, ''),
                (idle, ['set', 'iris-hold=on', '--strict'], 1, 'no effect now: use camctl shell'),
                (idle, ['set', 'iris-hold=on', '--strict', '--dry-run'], 1, 'no effect now: use camctl shell'),
                (idle, ['config', 'set', 'wb=7'], 2, '7 is not indoor (1)'),
                (idle, ['get', 'exposure'], 2, 'no setting or query exposure'),
                (idle, ['reg', 'write', 'vmax_lo=1'], 2, 'can only be read'),
                (idle, ['config', 'restore', '/dev/null'], 2, '/dev/null: is empty'),
                (idle, ['do', 'onepsh'], 2, 'did you mean onepush'),
                (idle, ['reg', 'write', 'saturation=256'], 2, 'value 256 is not 0 to 0xff'),
                (idle, ['reg', 'read', '256/0'], 2, 'no register 256/0'),
                (idle, ['flash', 'store'], 2, 'no terminal to ask on, use --yes'),
                (idle, ['lsit'], 2, 'no command lsit, did you mean list'),
                (idle, ['config', 'save', '/nowhere/file'], 2, 'No such file or directory'),
                (idle, ['config', 'init'], 2, '/tmp/config/all.conf is there already, use --force'),
                (idle, ['bench', '--count', '0'], 2, '--count')]:
            with self.subTest(options=options, arguments=arguments), Camera(*options):
                result = self.check(camctl(*arguments, '--json'), code, message)
                answer = json.loads(result.stdout.splitlines()[-1])
                self.assertEqual(answer.get('error', {}).get('code', 0), code)

    def test_without_a_comm_application_commands_end_with_4(self):
        for arguments in (['set', 'saturation=3'], ['set', '--dry-run', 'saturation=3'], ['get', 'icr'], ['shell'],
                          ['reg', 'dump', '10'], ['doctor'], ['flash', 'sdram'], ['bench']):
            with self.subTest(arguments=arguments):
                self.results(*arguments, code=4)

    def test_a_record_that_a_dead_process_holds_is_busy_and_doctor_says_so(self):
        with Camera() as camera:
            camera.send(signal.SIGSTOP)
            victim = subprocess.Popen([CAMCTL, 'reg', 'read', 'saturation'], stderr=subprocess.DEVNULL)
            time.sleep(0.6)
            victim.kill()
            victim.wait()
            self.check(camctl('reg', 'read', 'saturation'), 5, f'held by process {victim.pid}, which is gone')
            self.check(camctl('set', 'saturation=3'), 5)
            bad = [row for row in self.results('doctor', code=5) if not row['good']]
            self.assertEqual([row['subject'] for row in bad], ['record'])
            self.assertIn('restart the comm application', bad[0]['advice'])
            camera.stop(signal.SIGKILL)
            self.results('reg', 'read', 'saturation', code=4)

    def test_unreadable_settings_are_refused_before_anything_is_sent(self):
        (CONFIG / 'all.conf').write_bytes(bytes(879))
        with Camera() as camera:
            self.check(camctl('set', 'saturation=3'), 2, 'the stored settings cannot be read')
            self.check(camctl('doctor'), 2, 'stored settings')
        self.assertEqual(camera.trace, ['r 0/0x03 -> 03 01 00'])

    def test_settings_that_the_library_refuses_end_with_1(self):
        store('color = 2')
        with Camera():
            self.check(camctl('set', 'saturation=3'), 1, 'refused the stored settings')

    def test_a_camera_that_does_not_answer_is_asked_once(self):
        for arguments in (['set', 'saturation=3'], ['do', 'onepush'], ['get', '--all'], ['reg', 'dump', '10'], ['shell'],
                          ['set', '--dry-run', 'saturation=3'], ['bench', '--requests'], ['flash', 'sdram']):
            with self.subTest(arguments=arguments), Camera('--fault', 'no_reply:0:99') as camera:
                self.check(camctl(*arguments), 3, 'no reply within one second')
            self.assertEqual(len(camera.trace), 1)

    @unittest.skipIf(os.geteuid() != 0, 'another user is needed')
    def test_missing_rights_are_the_callers_fault(self):
        with Camera():
            for command in (['reg', 'read', 'saturation'], ['set', 'saturation=3'], ['doctor']):
                self.check(camctl(*command, under=['setpriv', '--reuid=65534', '--clear-groups']), 2)

    def test_get_tells_what_is_stored_and_what_the_registers_hold(self):
        session = [f'set {name}={value}\nget {name}' for name, values in (
            ('saturation', range(7)), ('contrast', range(7)), ('sharpness', range(7)), ('expcomp', range(19)),
            ('gamma', range(7)), ('gain', range(6)), ('agc-max-gain', (0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12)), ('rgain', (0, 77, 250)),
            ('bgain', (0, 77, 250)), ('color', ('monochrome', 'color')), ('blcomp', ('low', 'high', 'off')),
            ('wb', ('indoor', 'outdoor', 'onepush', 'atw', 'manual', 'atwpro', 'mercurylampmega')),
            ('colorbar', ('on', 'off')), ('dnmode', ('on', 'off')), ('iris-hold', ('on', 'off'))) for value in values]
        with Camera():
            result = self.check(camctl('shell', '--json', text_in='\n'.join(session)), 0)
            self.check(camctl('reg', 'write', 'saturation=0x81'), 0)
            raw = self.check(camctl('get', 'saturation', 'icr'), 0).stdout
        answers = [json.loads(line)['results'][-1] for line in result.stdout.splitlines()]
        for line, answer, got in zip(session, answers[::2], answers[1::2]):
            value = line.split('\n')[0].split('=')[1]
            self.assertEqual((answer['new'], got['registers']), (value, value), line)
        self.assertEqual(raw, 'icr = 60 (state bit clear: day, filter in place)\n'
                         'saturation          stored 3                registers raw 0x81\n')

    def test_registers_are_saved_compared_and_restored(self):
        with Camera('--set', 'saturation=5') as camera:
            self.check(camctl('reg', 'save', 'before.txt'), 0)
            self.check(camctl('reg', 'write', 'saturation=6', 'contrast=7'), 0)
            different = self.check(camctl('reg', 'diff', 'before.txt'), 1).stdout
            self.assertEqual(different, '# before.txt -> camera\n10/0x06  contrast                0x00 -> 0x07\n'
                             '10/0x09  saturation              0x05 -> 0x06\n')
            shown = self.results('reg', 'restore', 'before.txt', '--dry-run')
            self.assertEqual(self.results('reg', 'restore', 'before.txt'), shown)
            self.check(camctl('reg', 'diff', 'before.txt'), 0)
            vmax = self.check(camctl('reg', 'read', 'vmax'), 0).stdout
        self.assertEqual(vmax, '81/0x0a vmax_lo = 0xca\n81/0x0b vmax_hi = 0x08\n')
        self.assertFalse(any('81/0x0a=' in line for line in camera.trace))

    def test_shell_lines_are_limited_and_numbered(self):
        with Camera():
            self.check(camctl('shell', text_in='\nset nothing=1\n'), 2, 'camctl: line 2: set nothing=1: no setting')
            with open('/dev/zero') as zero:
                endless = subprocess.run([CAMCTL, 'shell'], stdin=zero, capture_output=True, text=True, timeout=20)
            self.check(endless, 2, 'line 1: longer than 4096 bytes')

    def test_shell_keeps_its_control_thread(self):
        session = '# a session\n\nget iris-hold\nset iris-hold=on\nget iris-hold\nset wb=onepush\ndo onepush\n' \
                  'set nothing=1\nset --dry-run --strict saturation=2 iris-hold=on\nreg read preset1_red_gain_lo\n' \
                  'quit\nset saturation=1\n'
        with Camera() as camera:
            result = self.check(camctl('shell', '--json', text_in=session), 2, 'no setting nothing')
        answers = [json.loads(line) for line in result.stdout.splitlines()]
        self.assertEqual(len(answers), 8)
        self.assertEqual([answers[i]['results'][0]['value'] for i in (0, 2, 7)], [0, 1, 0x42])
        self.assertEqual(answers[4]['results'][0]['registers'][-1]['new'], 5)
        self.assertEqual(answers[6]['results'][0]['registers'][0]['new'], 0x60)
        self.assertEqual(self.results('config', 'show', 'onepush_rgain')[0]['value'], 0x0e42)
        self.assertNotIn('w 10/0x09=0x60 -> 02 01', camera.trace)

    def test_nothing_sent_is_said(self):
        store(SETTINGS + 'expcomp_gate = 1\n')
        with Camera():
            result = self.check(camctl('set', 'expcomp=4'), 0)
        self.assertIn('nothing sent (has an effect only while the stored expcomp_gate is 0, 3, 4 or 5)', result.stdout)

    def test_raw_registers(self):
        with Camera('--set', '10/0x0a=0x11'):
            self.assertEqual(self.check(camctl('reg', 'read', 'effect', '10/9'), 0).stdout,
                             '10/0x0a effect = 0x11\n10/0x09 saturation = 0x00\n')
            written = self.results('reg', 'write', 'effect=0xff', '20/5=0x33:0x0f')
            self.assertEqual([(w['mask'], w['old'], w['new']) for w in written], [(3, 0x11, 0x13), (0x0f, 0, 3)])
            self.assertEqual(self.results('reg', 'dump', '10', '9', '0xa')[0]['values'], [0, 0x13])
            self.assertIn('\n0x00                                 13 00\n',
                          self.check(camctl('reg', 'dump', '10', '10', '11'), 0).stdout)

    def test_a_register_that_does_not_hold_what_was_written_is_an_error(self):
        with Camera():
            # The sensor itself sets the readout field.
            self.check(camctl('reg', 'write', '--force', '2/0=0x10'), 1,
                       'reg write: register 2/0x00 holds 0x08, not 0x10 under mask 0x1c')
        # Somebody else writes between a request and the look at its registers, its last exchange.
        _, trace = traffic_of('set', 'saturation=4')
        pathlib.Path('scenario').write_text(f'at {len(trace) - 1} set saturation=1\n')
        with Camera('--scenario', 'scenario'):
            self.check(camctl('set', 'saturation=4'), 1, 'set saturation=4: register 10/0x09 holds 1, not 160')

    def test_watch_shows_the_state_then_each_change_at_once(self):
        with Camera():
            watch = subprocess.Popen([CAMCTL, 'reg', 'watch', 'hue', 'brightness', '--count=1', '--interval=20',
                                      '--json'], stdout=subprocess.PIPE, text=True)
            self.assertEqual([json.loads(watch.stdout.readline())['value'] for _ in range(2)], [0, 0])
            self.check(camctl('reg', 'write', 'brightness=7'), 0)
            change = json.loads(watch.stdout.readline())
            self.assertEqual((change['name'], change['old'], change['value'], watch.wait(10)), ('brightness', 0, 7, 0))
            watch.stdout.close()

    def test_every_json_answer_can_be_parsed(self):
        session = SOURCE / 'tests/data/session.rec'
        same = ('config diff a.txt', 'reg diff r.txt', 'reg restore r.txt')
        lines = ('list', 'set saturation=3', 'do exposure', 'get --all', 'reg read 10/9', 'reg write 10/9=1',
                 'reg dump 10', 'reg list', 'reg save r.txt', same[1], same[2], 'config init --force', 'config show',
                 'config set saturation=2', 'config save a.txt', 'config restore a.txt', same[0],
                 f'recording show {session}', f'recording diff {session} {session}', 'doctor', 'flash sdram', 'flash load --yes',
                 'flash store --yes', 'bench --count 3 --requests', 'list --help', '--version', 'document registers')
        with Camera():
            for line in lines:
                with self.subTest(line=line):
                    under = [CAMSIM, 'exec'] if '--yes' in line else []
                    answer = json.loads(self.check(camctl(*line.split(), '--json', under=under), 0).stdout)
                    self.assertEqual(answer['results'] == [], line in same)
        # These print one object a line, or what a program does, and have tests of their own.
        seen = {' '.join(line.split()[:words]) for line in lines for words in (1, 2)}
        seen |= {'shell', 'reg watch', 'record', 'recording chrome', 'replay'}
        self.assertLessEqual({' '.join(path) for path in self.commands()}, seen)

    def test_config_files_carry_the_whole_record(self):
        record = bytes((7 * i + 3) % 251 for i in range(880))
        (CONFIG / 'all.conf').write_bytes(record)
        self.check(camctl('config', 'save', 'saved.txt'), 0)
        store(SETTINGS)
        self.check(camctl('config', 'restore', 'saved.txt'), 0)
        self.assertEqual((CONFIG / 'all.conf').read_bytes(), record)
        self.check(camctl('config', 'set', 'wb-mode=indoor', 'saturation=6'), 0)
        differences = self.check(camctl('config', 'diff', 'saved.txt', '--json'), 1).stdout
        self.assertEqual([row['stored'] for row in json.loads(differences)['results']],
                         ['wb_mode = indoor', 'saturation = 6'])
        changed = [i for i, byte in enumerate((CONFIG / 'all.conf').read_bytes()) if byte != record[i]]
        self.assertEqual(changed, [16, 17, 18, 19, 48, 49, 50, 51])

    def test_a_bad_config_line_changes_nothing(self):
        before = (CONFIG / 'all.conf').read_bytes()
        for line in ('wb_mode', 'wb_mod = 1', 'saturation = x', 'icr_enable = 256', '0x010 = 00', '0x36f = 00 00',
                     '0x0zz = 00', '0x000 = 100', '0x000 ='):
            with self.subTest(line=line):
                pathlib.Path('bad.txt').write_text(f'saturation = 5\n{line}\n')
                self.check(camctl('config', 'restore', 'bad.txt'), 2, 'bad.txt line 2')
                self.assertEqual((CONFIG / 'all.conf').read_bytes(), before)
        self.check(camctl('config', 'set', 'saturation=5', 'shutter_speed=15'), 2, '15 is not 0 to 14')
        self.assertEqual((CONFIG / 'all.conf').read_bytes(), before)

    def test_what_is_not_the_record_is_not_read_but_a_file_is_replaced(self):
        record, whole = CONFIG / 'all.conf', (CONFIG / 'all.conf').read_bytes()
        for kind, make, restored in (('short', lambda: record.write_bytes(bytes(879)), 0),
                                     ('long', lambda: record.write_bytes(bytes(881)), 0),
                                     ('missing', lambda: None, 0),
                                     ('pipe', lambda: os.mkfifo(record), 0),
                                     ('folder', record.mkdir, 2)):
            with self.subTest(kind=kind):
                record.unlink()
                make()
                before = record.lstat() if record.exists() else None
                for command in (['show'], ['set', 'saturation=3']):
                    self.check(camctl('config', *command), 2, 'the stored settings cannot be read')
                self.assertEqual(record.lstat() if record.exists() else None, before)
                self.check(camctl('config', 'restore', 'settings.txt'), restored)
                if restored == 0:
                    self.assertEqual(record.read_bytes(), whole)
        record.rmdir()
        nowhere = ['env', 'IPCAM_CONFIG_DIR=/nowhere']
        self.check(camctl('config', 'restore', 'settings.txt', under=nowhere), 2)

    def test_a_failed_write_leaves_the_stored_record(self):
        before = (CONFIG / 'all.conf').read_bytes()
        disk_full = ['prlimit', '--fsize=500', 'env', '--ignore-signal=XFSZ']
        self.check(camctl('config', 'set', 'saturation=5', under=disk_full), 2, 'config set')
        self.assertEqual((CONFIG / 'all.conf').read_bytes(), before)
        self.assertFalse((CONFIG / 'all.conf.new').exists())

    def test_readers_see_whole_records_while_processes_write(self):
        (CONFIG / 'all.conf').chmod(0o600)
        records, writers = [bytes([value] * 880) for value in (1, 2)], []
        for value, record in enumerate(records):
            (CONFIG / 'all.conf').write_bytes(record)
            self.check(camctl('config', 'save', f'filled{value}'), 0)
            writers.append(['bash', '-ec', 'for i in {1..50}; do "$0" config restore "$1"; done', CAMCTL,
                            f'filled{value}'])
        writers = [subprocess.Popen(command, stdout=subprocess.DEVNULL) for command in writers]
        while None in [writer.poll() for writer in writers]:
            self.assertIn((CONFIG / 'all.conf').read_bytes(), records)
        self.assertEqual([writer.returncode for writer in writers], [0, 0])
        self.assertEqual((CONFIG / 'all.conf').stat().st_mode & 0o777, 0o600)

    def test_flash_asks_on_a_terminal(self):
        for answer, code, text in (('n\n', 2, 'nothing done'), ('y\n', 0, 'stored to flash')):
            got, output = on_terminal([CAMSIM, 'exec', CAMCTL, 'flash', 'store'], answer)
            self.assertEqual(got, code, output)
            self.assertIn(text, output)
        self.check(camctl('flash', 'load', '--yes', under=[CAMSIM, 'exec']), 0)

    def test_colour_is_for_terminals_and_only_where_it_is_wanted(self):
        escape = '\033['
        self.assertIn(escape, on_terminal([CAMCTL, 'list'], NO_COLOR='')[1])
        self.assertNotIn(escape, on_terminal([CAMCTL, 'list'], NO_COLOR='1')[1])
        self.assertNotIn(escape, camctl('list').stdout)

    def test_a_terminal_shell_takes_commands_until_exit(self):
        with Camera():
            code, output = on_terminal([CAMCTL, 'shell'], 'set saturation=5\nexit\n')
        self.assertEqual(code, 0, output)
        self.assertIn('0x80 -> 0xc0', output)

    def test_results_that_cannot_be_written_are_an_error(self):
        with open('/dev/full', 'w') as full:
            result = subprocess.run([CAMCTL, 'list', '--json'], stdout=full, stderr=subprocess.PIPE, text=True)
        self.check(result, 2, 'No space left on device')

    def test_an_interrupted_command_ends_as_the_signal_would_end_it(self):
        with Camera():
            watch = subprocess.Popen([CAMCTL, 'reg', 'watch', 'saturation'], stdout=subprocess.PIPE, text=True)
            watch.stdout.readline()
            watch.send_signal(signal.SIGINT)
            self.assertEqual(watch.wait(10), -signal.SIGINT)
            watch.stdout.close()
            self.check(camctl('reg', 'read', 'saturation'), 0)
        with Camera() as camera:
            binning = subprocess.Popen([CAMCTL, 'set', 'binning=on'], stderr=subprocess.PIPE, text=True)
            camera.wait_for('w 0/0x03=0x01')
            binning.send_signal(signal.SIGINT)
            self.assertIn('may be half set: 0/0x03 sensor_mode', binning.communicate(timeout=20)[1])

    def subcommands(self, path):
        help_text = camctl(*path, '--help').stdout
        part = re.search(r'(?ms)^Subcommands:\n(.*?)(\n\n|\Z)', help_text)
        return help_text, re.findall(r'^  (\S+) ', part[1], re.M) if part else []

    def commands(self):
        paths = [[]]
        for path in paths:
            paths += [path + [name] for name in self.subcommands(path)[1]]
        return paths[1:]

    def test_help_man_page_and_completion_name_the_same(self):
        page = (SOURCE / 'docs/camctl.1.scd').read_text()
        heads = re.findall(r'(?m)^\*.*', page.split('# COMMANDS')[1].split('\n# ')[0])
        named = set(re.findall(r'\*((?:[a-z]+ ?)+)\*', ' '.join(heads)))
        for path in [[], *self.commands()]:
            help_text, names = self.subcommands(path)
            options = set(re.findall(r'--[a-z-]+', help_text.split('Example:')[0]))
            self.assertEqual(camctl('complete', *path, '').stdout.split() if names else [], names)
            self.assertEqual(set(camctl('complete', *path, '--').stdout.split()), options | {'--json', '--verbose', '--no-retry'})
            for option in options:
                self.assertIn(f'*{option}*', page)
        self.assertEqual(named, {' '.join(path) for path in self.commands() if not self.subcommands(path)[1]})

        settings = {row['name'] for row in self.results('list') if row['kind'] == 'setting'}
        self.assertEqual({word.rstrip('=') for word in camctl('complete', 'set', '').stdout.split()}, settings)
        self.assertEqual(set(re.findall(r'\*camctl set ([a-z-]+)=', page)), settings)
        codes = re.findall(r'(?m)^\*(\d)\*\n\t(\w+)', page.split('# EXIT STATUS')[1])
        self.assertEqual(codes, re.findall(r'(?m)^  (\d)  (\w+)', camctl('--help').stdout))
        self.assertEqual([code for code, _ in codes], list('012345'))

    def test_bash_completes_behind_an_equals_sign(self):
        script = 'source "$0"; COMP_LINE="$1 set wb=o"; COMP_POINT=${#COMP_LINE}; _camctl; echo "${COMPREPLY[*]}"'
        result = subprocess.run(['bash', '-c', script, SOURCE / 'tools/camctl.bash', CAMCTL],
                                capture_output=True, text=True)
        self.assertEqual(result.stdout, 'outdoor onepush\n', result.stderr)


def run_in_its_own_sandbox(name):
    """Most of a test is the library's own waits, so many can run at a time."""
    return subprocess.run([sys.executable, __file__, SOURCE, BUILD, name],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def run_all():
    names = [f'CamctlTest.{name}' for name in unittest.defaultTestLoader.getTestCaseNames(CamctlTest)]
    with concurrent.futures.ThreadPoolExecutor(6) as pool:
        results = list(pool.map(run_in_its_own_sandbox, names))
    failed = [result for result in results if result.returncode != 0]
    print(*(result.stdout for result in failed), f'{len(results)} tests, {len(failed)} failed', sep='\n')
    return len(failed) > 0 or not results


if __name__ == '__main__':
    if len(sys.argv) == 3:
        sys.exit(run_all())
    enter_sandbox()
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])

"""Uses camsim as a person would: scenarios, traces, register files, pictures. Arguments: source directory, build
directory."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import unittest

from PIL import Image, ImageChops, ImageStat

from camera_sandbox import BUILD, CAMCTL, CAMSIM, CONFIG, SETTINGS, SOURCE, Camera, camctl, enter_sandbox, store

PICTURE = pathlib.Path('/tmp/picture.png')


def camsim(*arguments):
    return subprocess.run([CAMSIM, *arguments], capture_output=True, text=True, timeout=20)


def factory_files(*names):
    """Sample adjustment files, of which only these are kept."""
    assert camsim('--factory').returncode == 0
    for file in pathlib.Path('/var/tmp').iterdir():
        if file.name not in names:
            file.unlink()


class Shell:
    """A camctl shell, with one control thread for all commands."""

    def __enter__(self):
        self.process = subprocess.Popen([CAMCTL, 'shell'], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        return self

    def __exit__(self, *_):
        self.output = self.process.communicate(timeout=20)[0]

    def command(self, text):
        self.process.stdin.write(text + '\n')
        self.process.stdin.flush()


def shown(*settings):
    """The picture with these registers."""
    with Camera('--picture', PICTURE, *(f'--set={setting}' for setting in settings)):
        pass
    return Image.open(PICTURE).copy()


def in_chart(picture, name):
    """Mean red, green and blue of a part of the chart."""
    boxes = {'brown': (10, 10, 70, 56), 'blue': (10, 142, 70, 188), 'white': (10, 208, 70, 254),
             'grey': (250, 208, 310, 254), 'black': (410, 208, 470, 254)}
    return ImageStat.Stat(picture.crop(boxes[name])).mean


def luma(picture, name):
    return ImageStat.Stat(picture.convert('L')).mean[0] if name == 'all' else sum(in_chart(picture, name))


def edges(picture):
    return ImageStat.Stat(picture.convert('L').crop((130, 310, 400, 390))).stddev[0]


def spread(picture):
    return max(in_chart(picture, 'blue')) - min(in_chart(picture, 'blue'))


def warmth(picture):
    return in_chart(picture, 'grey')[0] - in_chart(picture, 'grey')[2]


class ScenarioTest(unittest.TestCase):
    """The files of scenarios/, with the sessions that they name."""

    def setUp(self):
        store(SETTINGS)
        factory_files()

    def replay(self, name, *commands):
        """The commands in one shell, after each of them until camsim has printed a text so many times; then every
        exchange, as JSON."""
        with Camera('--json', '--scenario', SOURCE / 'scenarios' / f'{name}.txt') as camera:
            with Shell() as self.shell:
                for command, text, times in commands:
                    self.shell.command(command)
                    camera.wait_for(text, times)
        self.assertEqual(camera.process.returncode, 0)
        return self.parsed(camera.lines)

    def parsed(self, lines):
        exchanges = [json.loads(line) for line in lines]
        for number, exchange in enumerate(exchanges):
            with self.subTest(exchange=exchange):
                self.assertEqual(exchange['exchange'], number)
                values = [entry['value'] for entry in exchange['entries']]
                addresses = [f"{entry['category']}/0x{entry['byte']:02x}" for entry in exchange['entries']]
                if exchange['access'] == 'read':
                    self.assertEqual(exchange['command'], ' '.join(['r', *addresses]))
                    self.assertEqual([value for value in values if value is not None], exchange['reply']['values'])
                elif exchange['access'] == 'write':
                    self.assertEqual(exchange['command'], ' '.join(
                        ['w', *(f'{address}=0x{value:02x}' for address, value in zip(addresses, values))]))
                    self.assertEqual(exchange['reply']['values'], [])
        return exchanges

    @staticmethod
    def values(exchanges, access, name):
        return [entry['value'] for exchange in exchanges for entry in exchange['entries']
                if (exchange['access'], entry['name']) == (access, name)]

    def test_dusk_and_dawn(self):
        factory_files('AdjCamera.txt')
        for name, icr_state, evr, answers in (('dusk', 1, [1, 1, 255, 255], ['icr = 60', 'icr = 59']),
                                          ('dawn', 0, [1, 255, 255, 1], ['icr = 59', 'icr = 60'])):
            with self.subTest(name):
                exchanges = self.replay(name, ('get icr', f'icr_state={icr_state}', 1),
                                        ('get icr', '"name":"evrdata4"', 8))
                # First the factory file's value, then the worker's.
                self.assertEqual(self.values(exchanges, 'write', 'evrdata4')[:4], evr)
                self.assertEqual([line[:8] for line in self.shell.output.splitlines()], answers)

    def test_flicker(self):
        exchanges = self.replay('flicker', ('set wb=onepush\ndo onepush', '"command":"w 12/0x00=0x05"', 3))
        self.assertEqual(self.values(exchanges, 'read', 'measured_red_gain_hi'), [12, 15] * 4 + [14] * 5)
        self.assertEqual(self.values(exchanges, 'write', 'preset1_red_gain_hi')[-1], 0x0e)

    def test_three_attempts(self):
        factory_files('AdjWbHalfPixels.txt', 'AdjWbAllPixels.txt')
        exchanges = self.replay('three_attempts', ('set binning=on\nset binning=off', '"name":"readout_status"', 6))
        self.assertEqual(self.values(exchanges, 'write', 'sensor_mode'), [1, 1, 1, 0, 0, 0])
        self.assertEqual(self.values(exchanges, 'read', 'readout_status'), [8, 8, 16, 16, 16, 8])

    def test_restart(self):
        exchanges = self.replay('restart', ('set saturation=4', 'serving requests', 2),
                                ('set saturation=5', '=0xc0', 1))
        self.assertEqual(self.values(exchanges, 'write', 'saturation'), [0x80, 0xa0, 0xc0])
        self.assertEqual({exchange['fault'] for exchange in exchanges}, {'none'})

    def test_a_stop_ends_the_time_without_a_camera(self):
        pathlib.Path('bad').write_text('at 0 restart 600000\n')
        with Camera('--scenario', 'bad') as camera:
            camera.wait_for('restart 600000')
        self.assertEqual(camera.process.returncode, 0)

    def test_every_scenario_has_a_test(self):
        names = {file.stem for file in (SOURCE / 'scenarios').iterdir()}
        tests = ' '.join(name for name in dir(self) if name.startswith('test_'))
        self.assertEqual({name for name in names if name not in tests}, set())

    def test_a_session_gives_just_these_lines(self):
        pathlib.Path('session.txt').write_text(
            'at 0 set effect=2 200/7=9\nat 0 script shutter_value=5,6\nat 4 fault no_reply wrong_status:3:1:1\n'
            'at 5 set contrast=255\n')
        for options, file in ((('--json',), 'camsim_session.jsonl'), ((), 'camsim_session.txt')):
            with Camera('--scenario', 'session.txt', *options) as camera:
                self.assertEqual([camctl(*words.split()).returncode for words in (
                    'reg read effect 17/28 200/7', 'reg write manual_red_gain_lo=1 manual_red_gain_hi=16',
                    'reg read shutter_value saturation', 'flash sdram', 'reg write brightness=1 contrast=2')],
                    [0, 0, 3, 0, 0])
            self.assertEqual(camera.lines, (SOURCE / 'tests/data' / file).read_text().splitlines(), file)
            if options:
                self.parsed(camera.lines)


class RegisterFileTest(unittest.TestCase):
    def test_saved_registers_are_loaded_again(self):
        with Camera('--save-registers', 'saved', '--set', 'saturation=0x90', '255/65535=1', '200/0=7', '2/0=0',
                    'manual-red-gain=5'):
            pass
        saved = pathlib.Path('saved').read_text()
        self.assertEqual(saved.splitlines(), [
            '2/0x00=0x00  # readout_status', '10/0x09=0x90  # saturation', '12/0x7c=0x05  # manual_red_gain_lo',
            '81/0x0a=0xca  # vmax_lo', '81/0x0b=0x08  # vmax_hi', '81/0x56=0x65  # frame_lines_lo',
            '81/0x57=0x04  # frame_lines_hi', '200/0x00=0x07', '255/0xffff=0x01'])
        with Camera('--registers', 'saved', '--save-registers', 'again'):
            self.assertEqual(camctl('reg', 'read', 'saturation').stdout, '10/0x09 saturation = 0x90\n')
        self.assertEqual(pathlib.Path('again').read_text(), saved)

    def test_factory_files(self):
        pathlib.Path('there').mkdir()
        self.assertEqual([camsim('--factory', 'there').returncode, camsim('--factory').returncode], [0, 0])
        for folder in ('there', '/var/tmp'):
            sizes = {file.name: file.stat().st_size for file in pathlib.Path(folder).iterdir()}
            self.assertEqual(sizes, {'AdjCamera.txt': 48, 'AdjWbHalfPixels.txt': 12, 'AdjWbAllPixels.txt': 12})


class RefusalTest(unittest.TestCase):
    def check(self, arguments, code, message):
        with self.subTest(arguments=arguments):
            result = camsim(*arguments)
            self.assertEqual((result.returncode, result.stdout), (code, ''), result.stderr)
            self.assertRegex(result.stderr, r'\Acamsim: [^\n]*\n\Z')
            self.assertIn(message, result.stderr)
            self.assertFalse(pathlib.Path('/tmp/comm.log').exists())
            self.assertFalse(PICTURE.exists())

    def setUp(self):
        PICTURE.unlink(missing_ok=True)

    def test_bad_arguments_start_nothing(self):
        for arguments, message in (
                (['--set', 'saturaton=1'], 'did you mean saturation'), (['--set', '256/0=1'], '256/0'),
                (['--set', 'saturation'], 'no value'), (['--set', 'saturation=256'], '0 to 255'),
                (['--set', 'saturation=1,2'], 'more than one'), (['--set', 'saturation=-1'], '0 to 255'),
                (['--fault', 'none'], 'no_reply'), (['--fault', 'no_reply:x'], 'bad number (x'),
                (['--fault', *['no_reply'] * 9], 'at most 8'), (['--registers', 'nothing'], 'nothing: cannot be read'),
                (['--registers', '/tmp'], '/tmp: cannot be read'), (['--scenario', '/tmp'], '/tmp: cannot be read'),
                (['--scenario', 'nothing'], 'nothing: cannot be read'), (['run', 'now'], 'now'), (['rum'], 'rum'),
                (['--trace', 'exec', 'true'], '--trace before exec'), (['--json', 'run'], '--json before run'),
                (['--factory', '/tmp', '--trace'], 'exclude'), (['--factory', '/tmp', 'run'], 'exclude'),
                (['exec'], 'required')):
            self.check([*arguments, '--picture', str(PICTURE)] if arguments[0] in ('--set', '--fault') else arguments,
                       2, message)

    def test_bad_lines_start_nothing(self):
        for option, line, message in (
                ('--registers', '10/9', 'no value'), ('--registers', 'nothing=1', 'no such register'),
                ('--scenario', 'set saturation=1', 'not a step'), ('--scenario', 'at 1 sat saturation=1', 'not a step'),
                ('--scenario', 'at x restart', 'bad number (x'), ('--scenario', 'at 1+ restart', 'bad number ('),
                ('--scenario', 'at 1+600001 restart', '0 to 600000'), ('--scenario', 'at 1 restart 1 2', 'too many'),
                ('--scenario', 'at 1 set', 'no argument'), ('--scenario', 'at 1 set saturation=1,2', 'more than one'),
                ('--scenario', 'at 1 script saturation=1,', 'bad number ('),
                ('--scenario', 'at 1 fault nothing', 'no such fault'),
                ('--scenario', 'at 5 restart\nat 4 restart', 'before the step above it (4, from 5)')):
            number = 3 + line.count('\n')
            pathlib.Path('bad').write_text(f'# comment\n\n{line}\n')
            self.check([option, 'bad', '--picture', str(PICTURE)], 2, f'bad line {number}: ')
            self.check([option, 'bad'], 2, message)

    def test_files_that_cannot_be_written(self):
        for arguments in (['--picture', '/nowhere/picture.png'], ['--picture', '/dev/null'], ['--picture', '/tmp'],
                          ['--save-registers', '/nowhere/file'], ['--save-registers', '/dev/null'],
                          ['--factory', '/nowhere']):
            self.check(arguments, 1, arguments[1])

    def test_a_step_that_cannot_be_done_ends_it(self):
        for step, message in (('fault' + ' no_reply' * 9, 'at most 8'),
                              ('script' + ''.join(f' 200/{byte}=1' for byte in range(17)), 'at most 256, 16')):
            pathlib.Path('bad').write_text(f'at 0 {step}\n')
            result = camsim('--scenario', 'bad')
            self.assertEqual(result.returncode, 1)
            self.assertRegex(result.stderr.splitlines()[-1], f'^camsim: bad line 1: .*{message}')
            self.assertFalse(pathlib.Path('/tmp/comm.log').exists())

    def test_a_second_camera_is_refused(self):
        with Camera():
            result = camsim('--trace')
        self.assertEqual(result.returncode, 1)
        self.assertIn('held by another comm application', result.stderr)


class AbandonedRequestTest(unittest.TestCase):
    def test_a_requester_that_was_killed_does_not_keep_the_others_out(self):
        with Camera('--fault', 'no_reply') as camera:
            with subprocess.Popen([CAMCTL, 'reg', 'read', 'saturation'], stderr=subprocess.DEVNULL) as victim:
                camera.wait_for('!no_reply')
                victim.kill()
            self.assertEqual(camctl('reg', 'read', 'saturation').returncode, 0)


class OwnNamespacesTest(unittest.TestCase):
    """A private camsim, which takes its steps while it runs."""

    def setUp(self):
        self.camera = subprocess.Popen([CAMSIM, '--private', '--steps', '--set', 'saturation=5'], text=True,
                                       stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertIn('serving requests', self.camera.stderr.readline())

    def tearDown(self):
        self.camera.terminate()
        self.camera.communicate(timeout=20)
        self.assertEqual(self.camera.returncode, 0)

    def step(self, text):
        self.camera.stdin.write(text + '\n')
        self.camera.stdin.flush()
        return self.camera.stderr.readline()

    def saturation(self):
        result = camsim('exec', CAMCTL, 'reg', 'read', 'saturation')
        return result.stdout.removeprefix('10/0x09 saturation = ').strip() if result.returncode == 0 else result.returncode

    def test_it_needs_no_stored_settings(self):
        result = camsim('exec', CAMCTL, 'set', 'saturation=5')
        self.assertEqual((result.returncode, result.stdout[-13:]), (0, '0x80 -> 0xc0\n'), result.stderr)

    def test_only_exec_reaches_it(self):
        self.assertEqual(camctl('reg', 'read', 'saturation').returncode, 4)
        self.assertEqual(self.saturation(), '0x05')
        with Camera('--set', 'saturation=6'):
            self.assertEqual(camctl('reg', 'read', 'saturation').stdout, '10/0x09 saturation = 0x06\n')
            self.assertEqual(self.saturation(), '0x05')
        result = camsim('exec', '--camera', '1', 'true')
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, '^camsim: namespaces: joining process 1: ')

    def test_two_of_them_must_be_told_apart(self):
        other = subprocess.Popen([CAMSIM, '--private'], stderr=subprocess.PIPE, text=True)
        try:
            self.assertIn('serving requests', other.stderr.readline())
            result = camsim('exec', 'true')
            self.assertEqual(result.returncode, 1)
            self.assertIn('choose one with --camera', result.stderr)
            self.assertEqual(camsim('exec', '--camera', str(other.pid), 'true').returncode, 0)
        finally:
            other.terminate()
            other.communicate(timeout=20)

    def test_steps_take_place_at_once_and_bad_ones_change_nothing(self):
        self.assertIn('after 0 exchanges: fault no_reply', self.step('fault no_reply'))
        self.assertEqual(self.saturation(), 3)
        self.assertIn('standard input: not a step', self.step('sat saturation=1'))
        self.assertIn('no such register', self.step('set nothing=1'))
        self.assertEqual(self.saturation(), '0x05')
        self.step('set saturation=7')
        self.assertEqual(self.saturation(), '0x07')
        self.step('restart')
        self.assertIn('serving requests', self.camera.stderr.readline())
        self.assertEqual(self.saturation(), '0x07')
        self.camera.stdin.write('set saturation=8')  # the last line may lack its end
        self.camera.stdin.close()
        self.camera.stdin = None  # communicate() would flush it
        self.assertIn('saturation=8', self.camera.stderr.readline())
        self.assertEqual(self.saturation(), '0x08')


class PictureTest(unittest.TestCase):
    def assert_same(self, one, other, tolerance=0):
        extrema = ImageChops.difference(one, other).getextrema()
        difference = extrema if isinstance(extrema[0], tuple) else [extrema]
        self.assertLessEqual(max(high for _, high in difference), tolerance)

    def test_registers_show(self):
        neutral = shown()
        self.assertEqual((neutral.size, neutral.mode), ((480, 400), 'RGB'))
        for name, expected in (('brown', (115, 82, 68)), ('white', (243, 243, 242)), ('black', (52, 52, 52))):
            for seen, wanted in zip(in_chart(neutral, name), expected):
                self.assertAlmostEqual(seen, wanted, delta=1)
        for name, more, less, measure in (
                ('saturation', 0xe0, 0x20, spread), ('brightness', 0xa0, 0x60, lambda p: luma(p, 'grey')),
                ('contrast', 0xb0, 0x50, lambda p: luma(p, 'white') - luma(p, 'black')), ('sharpness', 0xc0, 0x0c, edges),
                ('expcomp', 9, 0xf7, lambda p: luma(p, 'all')), ('gamma', 6, None, lambda p: luma(p, 'grey'))):
            with self.subTest(name):
                self.assertGreater(measure(shown(f'{name}={more}')), measure(neutral) * 1.05)
                if less is not None:
                    self.assertLess(measure(shown(f'{name}={less}')), measure(neutral) * 0.95)

    def test_effects(self):
        neutral, monochrome, negative, both = (shown(f'effect={value}') for value in range(4))
        red, green, blue = monochrome.split()
        self.assert_same(red, green)
        self.assert_same(red, blue)
        self.assert_same(negative, ImageChops.invert(neutral))
        self.assert_same(both, ImageChops.invert(monochrome))
        bars = shown('colorbar=1')
        self.assertEqual([bars.getpixel((30 + 60 * i, 200)) for i in range(8)],
                         [(255, 255, 255), (255, 255, 0), (0, 255, 255), (0, 255, 0), (255, 0, 255), (255, 0, 0),
                          (0, 0, 255), (0, 0, 0)])

    def test_hue_turns_colours_and_leaves_greys(self):
        neutral, turned, back = shown(), shown('hue=0x40'), shown('hue=0xc0')
        self.assertGreater(in_chart(turned, 'blue')[0], in_chart(neutral, 'blue')[0] + 20)
        self.assertLess(in_chart(back, 'blue')[0], in_chart(neutral, 'blue')[0])
        self.assertLess(max(in_chart(turned, 'grey')) - min(in_chart(turned, 'grey')), 3)

    def test_white_balance_gains(self):
        red, blue = (0x42, 0x0e), (0xed, 0x07)

        def gains(mode, first):
            bytes_ = enumerate((*red, *blue), first)
            return shown(f'wb_mode={mode}', *(f'12/{byte}={value}' for byte, value in bytes_))
        self.assert_same(gains(5, 0x80), shown())
        self.assert_same(gains(4, 0x7c), shown())
        self.assert_same(gains(1, 0x7e), shown())
        self.assertGreater(warmth(shown('wb_mode=4', 'manual_red_gain_hi=0x0a')), 10)
        self.assertLess(warmth(shown('wb_mode=4', 'manual_blue_gain_hi=0x05')), -10)

    def test_luma_curve(self):
        straight = [f'ygamma_{i}={0x38 + 0x10 * i}' for i in range(10)]
        self.assert_same(shown(*straight), shown(), tolerance=1)
        steep = [f'ygamma_{i}={value}' for i, value in enumerate((1, 0x80, 0xc2, 0xd5, 0xdb, 0xd5, 0xcf, 0xc9, 0xc3))]
        self.assertLess(luma(shown(*steep), 'black'), 30)
        self.assertAlmostEqual(in_chart(shown(*steep), 'grey')[0], 0xdb, delta=1)

    def test_the_file_follows_the_registers(self):
        def is_grey():
            red, green, _ = Image.open(PICTURE).split()
            return ImageChops.difference(red, green).getextrema()[1] == 0
        with Camera('--picture', PICTURE):
            self.assertFalse(is_grey())
            self.assertEqual(camctl('reg', 'write', 'effect=1').returncode, 0)
            deadline = time.monotonic() + 10
            while not is_grey() and time.monotonic() < deadline:
                time.sleep(0.05)
            self.assertTrue(is_grey())
            self.assertEqual(camctl('reg', 'write', 'effect=0').returncode, 0)
        self.assertFalse(is_grey())
        self.assertEqual(list(PICTURE.parent.glob('picture*')), [PICTURE])


class StartTest(unittest.TestCase):
    """camsim exec --start: a camera for one command."""

    def test_it_ends_with_the_command_whose_exit_code_counts(self):
        for command, code in (('exit 7', 7), ('kill -TERM $$', 143), ('camctl reg read nothing', 2),
                              ('ls /var/tmp/AdjCamera.txt', 0), ('nothing-there', 127)):
            result = camsim('exec', '--start', '--factory', '--', 'sh', '-c', f'PATH=$PATH:{BUILD}/bin; {command}')
            self.assertEqual(result.returncode, code, result.stderr)
        self.assertEqual(camsim('exec', 'true').returncode, 0)  # no camera has been left to choose
        self.assertEqual(camctl('reg', 'read', 'saturation').returncode, 4)

    def test_what_it_leaves_behind_is_the_callers(self):
        for folder, code in (('', 2), ('/tmp/', 2), ('/var/tmp/', 2), ('kept/', 0), ('/var/tmp/kept/', 0)):
            os.makedirs(folder or '.', exist_ok=True)
            files = [f'{folder}left.txt', f'{folder}left.png']
            result = camsim('exec', '--start', '--save-registers', files[0], '--picture', files[1], 'true')
            self.assertEqual(result.returncode, code, result.stderr)
            self.assertEqual([os.path.exists(file) for file in files], [code == 0] * 2)

    def test_a_command_does_not_run_without_the_stand_ins(self):
        shutil.copytree(BUILD / 'lib', '/tmp/a b/lib', symlinks=True)
        os.mkdir('/tmp/a b/bin')
        moved = shutil.copy(CAMSIM, '/tmp/a b/bin')
        result = subprocess.run([moved, 'exec', 'echo', 'real devices'], capture_output=True, text=True)
        self.assertEqual((result.returncode, result.stdout), (1, ''), result.stderr)
        self.assertIn('cannot be preloaded', result.stderr)

    def test_its_camera_has_the_options_of_others(self):
        result = camsim('exec', '--start', '--trace', '--scenario', 'dusk', CAMCTL, 'reg', 'read', 'shutter_value')
        self.assertEqual((result.returncode, result.stdout), (0, '17/0x1c shutter_value = 0x01\n'))
        self.assertEqual(result.stderr.splitlines()[1:], ['r 17/0x1c -> 03 01 01  # shutter_value'])
        for arguments, code, message in (
                (['exec', '--trace', 'true'], 2, '--trace requires --start'),
                (['exec', '--start', '--scenario', 'dawm', 'true'], 2, 'dawm: cannot be read')):
            result = camsim(*arguments)
            self.assertEqual(result.returncode, code)
            self.assertIn(message, result.stderr)


class DocumentTest(unittest.TestCase):
    def test_the_commands_of_the_readme_do_what_it_says(self):
        folder = pathlib.Path('/tmp/readme')
        folder.mkdir()
        environment = {**os.environ, 'PATH': f"{BUILD}/bin:{os.environ['PATH']}"}
        block = r'(?ms)^```sh\n(.*?)^```\n(?:\n```\n(.*?)^```)?'
        for script, printed in re.findall(block, (SOURCE / 'README.md').read_text()):
            if 'camsim' in script:
                result = subprocess.run(['bash', '-ec', script.replace('$PWD/build/demo', str(BUILD))], cwd=folder,
                                        env=environment, capture_output=True, text=True, timeout=20)
                self.assertEqual(result.returncode, 0, result.stderr)
                if printed:
                    self.assertEqual(result.stdout, printed)
        chart, shown = Image.open(folder / 'chart.png'), Image.open(SOURCE / 'docs/picture-after.png')
        self.assertIsNone(ImageChops.difference(chart, shown).getbbox())

    def test_help_and_man_page_name_the_same_options(self):
        texts = [camsim(*command, '--help').stdout.split('Example:')[0] for command in ([], ['run'], ['exec'])]
        no_command, run, _ = (set(re.findall(r'--[a-z-]+', text)) for text in texts)
        self.assertEqual(no_command, run | {'--factory', '--version'})
        page = (SOURCE / 'docs/camsim.1.scd').read_text()
        self.assertEqual(set(re.findall(r'--[a-z-]+', ''.join(texts))), set(re.findall(r'\*(--[a-z-]+)\*', page)))
        faults = re.search(r'with (.*)\)', camsim('--fault', 'none').stderr)[1].split()
        described = re.search(r'# FAULTS\n(.*?)\n# ', page, re.S)[1]
        self.assertEqual(sorted(re.findall(r'\*(\w+)\*', described)), sorted(faults))


if __name__ == '__main__':
    enter_sandbox()
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])

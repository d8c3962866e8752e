# Recordings: a fault that happens once is taken down, looked at, and played again without the camera.

heading "A session with a fault is recorded, shown and replayed"
start_camera --fault reply_255:38
on_camera_briefly bash -c "camctl record -o $work/fault.jsonl -- server || true"
stop_camera
show "the server sees something wrong" 'registers "r,10,9" -> 128: NOT AS EXPECTED' 1
on_workbench() { "$@" 2>&1 | grep -v '^dspset' >"$work/out" || true; tee -a "$work/seen" <"$work/out" | record; }
on_workbench camctl recording show "$work/fault.jsonl"
show "the exchange that failed" "1 of 2 exchanges failed"
on_workbench camctl replay "$work/fault.jsonl"
show "the same fault on the workbench" "the same: "

heading "The recording against other stored settings"
sed '1s/"stored":"\([0-9a-f]\{96\}\)03/"stored":"\105/' "$work/fault.jsonl" >"$work/changed.jsonl"
on_workbench camctl recording diff "$work/fault.jsonl" "$work/changed.jsonl"
show "the setting that differs" "! saturation = 3"
on_workbench camctl replay "$work/changed.jsonl"
show "the first exchange that differs" "! w 10/0x09=0x80"

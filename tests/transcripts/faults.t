What is damaged, missing or wrong: everything that is whole, one line that says why, and an exit code.

  $ make_dump whole.dump 7 <<'END'
  > 1.000 I/A (P 1, T 1): one
  > 2.000 I/A (P 1, T 1): two
  > 3.000 W/B (P 2, T 2): \x01\x02
  > END
  $ head -c -3 whole.dump >cut.dump
  $ printf 'I/A hello, this is text\nand more\n' >notes.txt
  $ printf '0.001 I/A(P 1, T 1): a: b(1) > c\n' >capture.txt
  $ : >empty.dump
  $ mkdir folder none; cp whole.dump folder/

  $ trelvoctl decode whole.dump
  1.000 I/A (P 1): one
  2.000 I/A (P 1): two
  3.000 W/B (P 2): <code 0102>
  trelvoctl: 1 of 3 messages are codes of policy 7: --policy DIR
  $ trelvoctl decode cut.dump
  ≤2.000 I/A (P 1): one
  ≤3.000 I/A (P 1): two
  trelvoctl: cut.dump: offset 35: message is cut off; the times shown are the latest possible
  [3]
  $ trelvoctl decode -o json cut.dump
  {"time_ms":2000,"latest":true,"level":"I","tag":"A","pid":1,"tid":1,"message":"one","coded":false,"file":"cut.dump"}
  {"time_ms":3000,"latest":true,"level":"I","tag":"A","pid":1,"tid":1,"message":"two","coded":false,"file":"cut.dump"}
  trelvoctl: cut.dump: offset 35: message is cut off; the times shown are the latest possible
  [3]
  $ trelvoctl decode -o export --boot-time 2025-11-24T12:00:00Z cut.dump
  __REALTIME_TIMESTAMP=1763985602000000
  __MONOTONIC_TIMESTAMP=2000000
  _BOOT_ID=56A1EE6BADD6A0C30B528787D731501A
  PRIORITY=6
  SYSLOG_IDENTIFIER=A
  _PID=1
  TID=1
  LATEST=1
  MESSAGE=one
  
  __REALTIME_TIMESTAMP=1763985603000000
  __MONOTONIC_TIMESTAMP=3000000
  _BOOT_ID=56A1EE6BADD6A0C30B528787D731501A
  PRIORITY=6
  SYSLOG_IDENTIFIER=A
  _PID=1
  TID=1
  LATEST=1
  MESSAGE=two
  
  trelvoctl: cut.dump: offset 35: message is cut off; the times shown are the latest possible
  [3]
  $ head -c 20 whole.dump | trelvoctl stat -o json - | grep -o '"records":.*"levels":[^,]*'
  trelvoctl: standard input: offset 20: record header is cut off
  "records":0,"shared_records":0,"records_per_second":null,"bytes_per_second":null,"levels":{}
  $ head -c 20 whole.dump | trelvoctl decode -n 1 - whole.dump
  trelvoctl: standard input: offset 20: record header is cut off
  3.000 W/B (P 2): <code 0102>
  trelvoctl: 1 of 3 messages are codes of policy 7: --policy DIR
  [3]
  $ trelvoctl stat cut.dump
  trelvoctl: cut.dump: offset 35: message is cut off
  cut.dump: 2 lines in 1.000 s, 2.0 a second
    time            2.000 to 3.000 seconds after the start of the machine
    size            32 B, 6.50 bytes a line
    as text         50 B, 25.00 a line, 1.56 times the dump
    levels          D 0  I 2  W 0  E 0  F 0
    coded           0 lines, 0.0 %
    over time       █                                                          █
  
       lines      %       size      %  tag
           2  100.0       13 B  100.0  A
  
       lines      %       size      %  program
           2  100.0       13 B  100.0  A
  [3]
  $ trelvoctl stat -o json cut.dump 2>/dev/null | grep -o '"damage".*'
  "damage":{"offset":35,"cause":"message is cut off"}}
  $ trelvoctl decode whole.dump missing.dump cut.dump -o raw
  trelvoctl: missing.dump: No such file or directory
  one
  trelvoctl: cut.dump: offset 35: message is cut off
  two
  <code 0102>
  trelvoctl: 1 of 3 messages are codes of policy 7: --policy DIR
  [3]
  $ trelvoctl decode notes.txt
  trelvoctl: notes.txt: not a dump (it looks like text)
  [3]
  $ trelvoctl decode capture.txt
  trelvoctl: capture.txt: not a dump: this is capture text; `trelvoctl train` reads it
  [3]
  $ trelvoctl decode empty.dump
  trelvoctl: empty.dump: empty, not a dump
  [3]
  $ trelvoctl decode none
  trelvoctl: no dumps in none (*.dump, *.dump.zst)
  [3]
  $ trelvoctl decode notes.txt whole.dump -o raw
  trelvoctl: notes.txt: not a dump (it looks like text)
  one
  two
  <code 0102>
  trelvoctl: 1 of 3 messages are codes of policy 7: --policy DIR
  [3]
  $ trelvoctl decode whole.dump A:X
  trelvoctl: decode: 'A:X' is neither a file nor TAG:LEVEL: levels are V, D, I, W, E, F and S
  [2]
  $ trelvoctl decode whole.dump --since soon
  trelvoctl: decode: 'soon' is not a time: expected '2026-11-25 00:54:00', 2026-11-25, 00:54, yesterday, '10 min ago', -5m (before the end), or seconds since boot
  [2]
  $ trelvoctl decode whole.dump -g '('
  trelvoctl: decode: '(' at 1: missing closing parenthesis
  [2]
  $ trelvoctl decode whole.dump -o yaml
  trelvoctl: --output: yaml not in {short,threadtime,json,csv,export,raw}
  [2]
  $ trelvoctl decode --policy nowhere whole.dump
  trelvoctl: decode: nowhere/policy_version.xml: No such file or directory
  [4]
  $ trelvoctl decode whole.dump >/dev/full
  trelvoctl: standard output: No space left on device
  [5]
  $ trelvoctl decdoe whole.dump
  trelvoctl: unknown command or option 'decdoe', did you mean decode?
  [2]
  $ trelvoctl help decdoe
  trelvoctl: unknown command or option 'decdoe', did you mean decode?
  [2]
  $ trelvoctl
  trelvoctl: a command is required
  Reads the dumps of the trelvo flight recorder and talks to its service.
  Usage: trelvoctl [OPTIONS] SUBCOMMAND
  
  Options:
    -h, --help                  Print this help message and exit
    -V, --version               Display program version information and exit
  
  Subcommands:
    decode                      Print dumps as one log
    stat                        Tell what dumps hold and what that costs
    patterns                    Tell which messages dumps hold, and how many of
                                each
    compare                     Tell which messages changed from one log to
                                another
    report                      Make a page to look at in a browser of what dumps
                                hold
    dump                        Ask the running service for a dump and wait for it
    launch                      Send a launch request to the running service
    status                      Say whether the service records, and how it is
    train                       Make code tables from logs
  
  trelvoctl COMMAND --help tells the options and the exit codes of a command.
  
  [2]
  $ trelvoctl status --help
  Say whether the service records, and how it is
  Usage: trelvoctl status [OPTIONS]
  
  Options:
    -h, --help                  Print this help message and exit
    -o, --output FORM:{text,json,prometheus}=text
                                Form of the output
  
  Says whether the service runs and whether what is logged reaches it, with what
  it holds, what it has lost and what came of the last dump. What nobody has said
  is shown as unknown. The form prometheus is for the text-file collector of a
  node exporter.
  
  Exit codes:
    0  the service records
    1  the service does not run
    2  wrong usage
    3  the service runs and does not record
    5  standard output could not be written
    7  a fault of trelvoctl itself
  
  $ for i in 1 2 3 4 5 6 7 8 9; do cp whole.dump $i.dump; done
  $ (trap '' XFSZ; ulimit -f 1; trelvoctl stat [1-9].dump >out); stat -c %s out; rm [1-9].dump out
  trelvoctl: standard output: File too large
  1024
  $ trelvoctl decode
  trelvoctl: FILE is required
  [2]
  $ trelvoctl stat missing.dump notes.txt
  trelvoctl: missing.dump: No such file or directory
  trelvoctl: notes.txt: not a dump (it looks like text)
  [3]
  $ trelvoctl compare whole.dump none
  trelvoctl: 1 of 3 messages are codes of policy 7: --policy DIR
  trelvoctl: no dumps in none (*.dump, *.dump.zst)
  [3]
  $ trelvoctl report whole.dump -o nowhere/page.html
  trelvoctl: nowhere/page.html.part: No such file or directory
  [5]
  $ ln -s loop loop; trelvoctl report whole.dump -o loop/page.html
  trelvoctl: loop/page.html.part: Too many levels of symbolic links
  [5]
  $ trelvoctl report none -o page.html
  trelvoctl: no dumps in none (*.dump, *.dump.zst)
  [3]
  $ ls page.html
  ls: cannot access 'page.html': No such file or directory
  [2]
  $ zstd -q whole.dump; head -c -4 whole.dump.zst >torn.dump.zst
  $ trelvoctl decode -o raw torn.dump.zst
  one
  two
  <code 0102>
  trelvoctl: torn.dump.zst: offset 0: the zstd frame that begins here is cut off; the times shown are the latest possible
  trelvoctl: 1 of 3 messages are codes of policy 7: --policy DIR
  [3]
  $ head -c -12 whole.dump.zst | trelvoctl decode -
  \xe2\x89\xa43.000 I/A (P 1): one (esc)
  trelvoctl: standard input: offset 0: the zstd frame that begins here is cut off; the times shown are the latest possible
  [3]
  $ cat whole.dump.zst torn.dump.zst | trelvoctl decode -o raw -
  one
  two
  <code 0102>
  trelvoctl: standard input: offset 51: the zstd frame that begins here is cut off; the times shown are the latest possible
  trelvoctl: 1 of 3 messages are codes of policy 7: --policy DIR
  [3]


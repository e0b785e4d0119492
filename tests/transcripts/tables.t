Training code tables, from every kind of input, and reading what a recorder wrote with them.

  $ printf 'A\tstarted\t9\nA\tstopped\t5\nB\tfrequent\t40\nB\trare, "quoted"\t2\nB\tonce\t1\n' >counts.tsv
  $ trelvoctl train -o tables --policy-version 7 counts.tsv
  policy         7 in tables
  tags           2 with a table, of 2
  entries        4
  on disk        16493 bytes
  in the service about 100 bytes of memory (estimate)
  lines          57; 56 coded (98.2 %)
  message bytes  507 as text, 117 with tables (76.9 % saved)
  $ stat -c '%A %n' tables tables/* | sort -k 2
  drwxr-xr-x tables
  -rw-r--r-- tables/1-A.db
  -rw-r--r-- tables/2-B.db
  -rw-r--r-- tables/policy_version.xml
  $ cat tables/policy_version.xml
  <trelvo>
    <policy version="7"/>
    <db logtag="A" name="1-A.db"/>
    <db logtag="B" name="2-B.db"/>
  </trelvo>
  $ for db in tables/*.db; do echo $db; sqlite3 $db 'select * from HuffmanCode order by 2'; done
  tables/1-A.db
  started|00000000
  stopped|00000001
  tables/2-B.db
  frequent|00000000
  rare, "quoted"|00000001
  $ trelvoctl train -o tables --policy-version 8 counts.tsv
  trelvoctl: tables: exists and is kept; --force replaces it
  [2]
  $ trelvoctl train -o few --policy-version 8 --min-count 5 --max-entries 1 counts.tsv
  policy         8 in few
  tags           2 with a table, of 2
  entries        2
  on disk        16493 bytes
  in the service about 47 bytes of memory (estimate)
  lines          57; 49 coded (86.0 %)
  message bytes  507 as text, 173 with tables (65.9 % saved)
  $ printf 'not a count\nA\tstarted\t9\n' | trelvoctl train -o other --policy-version 9 --format counts - | grep lines
  trelvoctl: standard input: line 1: is not TAG, message and count
  lines          9; 9 coded (100.0 %)
  $ rm -rf other
  $ printf 'A\tzero\t9\nA\tone\t5\n' >unordered.tsv
  $ (trap '' XFSZ; ulimit -f 4; trelvoctl train -o other --policy-version 9 unordered.tsv 2>&1 |
  >     sed 's/other\.[^/]*/other.X/'; echo ${PIPESTATUS[0]}); ls -d other*
  trelvoctl: other.X/1-A.db: disk I/O error
  5
  ls: cannot access 'other*': No such file or directory
  [2]
  $ (umask 027; trelvoctl train -o other --policy-version 9 unordered.tsv >/dev/null); stat -c %a other other/*
  750
  640
  640
  $ trelvoctl train -o other --policy-version 9 --force unordered.tsv >/dev/null; ls -d other*
  other
  $ sqlite3 other/1-A.db 'select log from HuffmanCode'
  one
  zero
  $ printf '1.000 I/A (P 1, T 1): started\n2.000 I/A (P 1, T 1): started\n' | make_dump trained.dump
  $ trelvoctl train -o other --policy-version 9 --force --evaluate trained.dump trained.dump
  policy         9 in other
  tags           1 with a table, of 1
  entries        1
  on disk        8268 bytes
  in the service about 23 bytes of memory (estimate)
  lines          2; 2 coded (100.0 %)
  message bytes  16 as text, 4 with tables (75.0 % saved)
  evaluated on   trained.dump
    lines        2; 2 coded (100.0 %), 0 refused
    bytes a line 29.00 as text, 10.50 without tables, 4.50 with tables
  $ rm -r other unordered.tsv trained.dump
  $ ln -s few link; trelvoctl train -o link/ --force --policy-version 8 counts.tsv
  trelvoctl: link/: not a folder; left unchanged
  [2]
  $ rm link
  $ for db in few/*.db; do sqlite3 $db 'select log from HuffmanCode'; done
  started
  frequent

A dump with these codes, as the recorder writes them.

  $ make_dump coded.dump 7 <<'END'
  > 1.000 I/A (P 1, T 1): \x01
  > 2.000 I/A (P 1, T 1): as text
  > 3.000 W/B (P 2, T 2): \x01
  > 4.000 W/B (P 2, T 2): \x0e
  > END
  $ make_dump plain.dump <<'END'
  > 5.000 I/A (P 1, T 1): no tables
  > END
  $ trelvoctl decode coded.dump
  1.000 I/A (P 1): <code 01>
  2.000 I/A (P 1): as text
  3.000 W/B (P 2): <code 01>
  4.000 W/B (P 2): <code 0E>
  trelvoctl: 3 of 4 messages are codes of policy 7: --policy DIR
  $ trelvoctl decode -g a coded.dump
  2.000 I/A (P 1): as text
  trelvoctl: 3 of 4 messages are codes of policy 7: --policy DIR; codes were not searched
  [4]
  $ trelvoctl decode -g '\x0e' coded.dump B:V
  trelvoctl: 2 of 2 messages are codes of policy 7: --policy DIR; codes were not searched
  [4]
  $ trelvoctl decode -g x plain.dump coded.dump --until 2.5 --since 2
  2.000 I/A (P 1): as text
  $ trelvoctl decode --policy tables coded.dump plain.dump
  1.000 I/A (P 1): stopped
  2.000 I/A (P 1): as text
  3.000 W/B (P 2): rare, "quoted"
  4.000 W/B (P 2): \x0E
  --------- fresh start after 4.000: a dump emptied the recorder, or the service was started
  5.000 I/A (P 1): no tables
  $ trelvoctl decode -o json --policy tables coded.dump
  {"time_ms":1000,"level":"I","tag":"A","pid":1,"tid":1,"message":"stopped","coded":true,"file":"coded.dump"}
  {"time_ms":2000,"level":"I","tag":"A","pid":1,"tid":1,"message":"as text","coded":false,"file":"coded.dump"}
  {"time_ms":3000,"level":"W","tag":"B","pid":2,"tid":2,"message":"rare, \"quoted\"","coded":true,"file":"coded.dump"}
  {"time_ms":4000,"level":"W","tag":"B","pid":2,"tid":2,"message":"\u000e","coded":false,"file":"coded.dump"}
  $ trelvoctl decode -o csv coded.dump
  time_ms,level,tag,pid,tid,message,coded,file,bytes
  1000,I,A,1,1,<code 01>,true,coded.dump,01
  2000,I,A,1,1,as text,false,coded.dump,
  3000,W,B,2,2,<code 01>,true,coded.dump,01
  4000,W,B,2,2,<code 0E>,true,coded.dump,0E
  trelvoctl: 3 of 4 messages are codes of policy 7: --policy DIR
  $ trelvoctl decode -g frequent --policy tables coded.dump
  [6]
  $ trelvoctl decode --policy few coded.dump
  trelvoctl: coded.dump: needs the code tables of policy version '7', not those of '8'
  [4]
  $ trelvoctl decode --policy few --force coded.dump
  1.000 I/A (P 1): \x01
  2.000 I/A (P 1): as text
  3.000 W/B (P 2): \x01
  4.000 W/B (P 2): \x0E
  $ mkdir policies; mv tables few policies/; ln -s loop policies/loop
  $ trelvoctl decode --policies policies coded.dump plain.dump
  trelvoctl: policies/loop: Too many levels of symbolic links; its codes are shown as they are
  1.000 I/A (P 1): stopped
  2.000 I/A (P 1): as text
  3.000 W/B (P 2): rare, "quoted"
  4.000 W/B (P 2): \x0E
  --------- fresh start after 4.000: a dump emptied the recorder, or the service was started
  5.000 I/A (P 1): no tables
  [4]
  $ rm policies/tables/1-A.db policies/loop
  $ mkdir policies/broken; echo '<x></y>' >policies/broken/policy_version.xml
  $ trelvoctl decode --policies policies coded.dump ./coded.dump
  trelvoctl: policies/broken/policy_version.xml: line 1: mismatched tag; its codes are shown as they are
  trelvoctl: policies/tables/1-A.db: unable to open database file; its codes are shown as they are
  1.000 I/A (P 1): \x01
  2.000 I/A (P 1): as text
  3.000 W/B (P 2): rare, "quoted"
  4.000 W/B (P 2): \x0E
  [4]
  $ rm -r policies/tables policies/broken
  $ trelvoctl decode --policies policies coded.dump
  trelvoctl: coded.dump: needs the code tables of policy version '7', which policies lacks
  [4]
  $ trelvoctl patterns coded.dump
  trelvoctl: 3 of 4 messages are codes of policy 7: --policy DIR
      COUNT L FIRST  LAST TIMELINE                 PATTERN
          3 W 1.000 4.000 █              █       █ <code <*>>
              A: <code 01>
          1 I 2.000 2.000        █                 as text
  $ trelvoctl stat coded.dump
  coded.dump: 4 lines in 3.000 s, 1.3 a second
    time            1.000 to 4.000 seconds after the start of the machine
    size            44 B, 6.25 bytes a line
    as text         at least 98 B, 24.50 a line, 2.23 times the dump
    levels          D 0  I 2  W 2  E 0  F 0
    coded           3 lines, 75.0 %: those that cannot be text, seen without code tables
    over time       █                  █                   █                   █
  
       lines      %       size      %  tag
           2   50.0       15 B   60.0  A
           2   50.0       10 B   40.0  B
  
       lines      %       size      %  program
           2   50.0       15 B   60.0  A
           2   50.0       10 B   40.0  B

  $ trelvoctl train -o again --policy-version 7 counts.tsv >/dev/null
  $ trelvoctl stat --policy again coded.dump
  coded.dump: 4 lines in 3.000 s, 1.3 a second
    time            1.000 to 4.000 seconds after the start of the machine
    size            44 B, 6.25 bytes a line
    as text         117 B, 29.25 a line, 2.66 times the dump
    levels          D 0  I 2  W 2  E 0  F 0
    coded           2 lines, 50.0 %
    over time       █                  █                   █                   █
  
       lines      %       size      %  tag
           2   50.0       15 B   60.0  A
           2   50.0       10 B   40.0  B
  
       lines      %       size      %  program
           2   50.0       15 B   60.0  A
           2   50.0       10 B   40.0  B
  $ cp -r again broken; echo x >broken/1-A.db; trelvoctl stat --policy broken coded.dump | grep coded
  trelvoctl: broken/1-A.db: file is not a database; its codes are not recognised
  coded.dump: 4 lines in 3.000 s, 1.3 a second
    coded           1 line, 25.0 %
  $ trelvoctl stat -o json --policy again coded.dump
  {"file":"coded.dump","policy_version":"7","bytes":44,"compressed_bytes":null,"dictionary_bytes":14,"first_ms":1000,"last_ms":4000,"span_ms":3000,"host":null,"first_time":null,"last_time":null,"records":4,"shared_records":0,"records_per_second":1.3333333333333333,"bytes_per_second":8.333333333333334,"levels":{"I":2,"W":2},"coded_by":"tables","coded_records":2,"coded_bytes":9,"record_bytes":{"delta":7,"header":4,"length":4,"message":10,"total":25},"text_bytes":117,"timeline":[1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1],"tags":[{"tag":"A","records":2,"bytes":15},{"tag":"B","records":2,"bytes":10}],"programs":[{"program":"A","records":2,"bytes":15},{"program":"B","records":2,"bytes":10}],"processes":[{"process":"A,1","records":2,"bytes":15},{"process":"B,2","records":2,"bytes":10}],"damage":null}
  $ trelvoctl patterns --policy again coded.dump
      COUNT L FIRST  LAST TIMELINE                 PATTERN
          1 I 1.000 1.000 █                        stopped
          1 I 2.000 2.000        █                 as text
          1 W 3.000 3.000                █         rare, "<*>"
              B: rare, "quoted"
          1 W 4.000 4.000                        █ 
              B: \x0E

From captured text, a journal and dumps; what they are for other lines.

  $ cat >capture.txt <<'END'
  > 0.001 I/A(P 1, T 1): a.c: main(1) > started
  > 0.002 I/A(P 1, T 1): a.c: main(1) > started
  > 0.002 W/B(P 1, T 1): b.c: main(2) > frequent
  > not a line
  > 0.001 I/A(P 1, T 1): a.c: main(1) > too late
  > 0.009 E/B(P 1, T 2): b.c: main(2) > frequent
  > END
  $ trelvoctl train -o capture --policy-version 1 --evaluate capture.txt --evaluate counts.tsv capture.txt
  policy         1 in capture
  tags           2 with a table, of 2
  entries        2
  on disk        16493 bytes
  in the service about 47 bytes of memory (estimate)
  lines          5; 4 coded (80.0 %)
  message bytes  43 as text, 17 with tables (60.5 % saved)
  evaluated on   capture.txt
    lines        4; 4 coded (100.0 %), 1 refused
    bytes a line 44.50 as text, 10.50 without tables, 4.00 with tables
  trelvoctl: counts.tsv: holds counts, which say nothing about records
  [3]
  $ trelvoctl train -o dumps --policy-version 1 --min-count 1 --policy again coded.dump plain.dump --evaluate coded.dump
  policy         1 in dumps
  tags           2 with a table, of 2
  entries        4
  on disk        16493 bytes
  in the service about 101 bytes of memory (estimate)
  lines          5; 4 coded (80.0 %)
  message bytes  43 as text, 10 with tables (76.7 % saved)
  evaluated on   coded.dump
    lines        4; 3 coded (75.0 %), 0 refused
    bytes a line 29.25 as text, 11.00 without tables, 4.75 with tables
  $ trelvoctl train -o dumps --force --policy-version 1 --min-count 1 coded.dump
  trelvoctl: coded.dump: 3 messages may be codes of policy version '7' and are left out; --policy gives its tables
  policy         1 in dumps
  tags           1 with a table, of 1
  entries        1
  on disk        8268 bytes
  in the service about 23 bytes of memory (estimate)
  lines          1; 1 coded (100.0 %)
  message bytes  8 as text, 2 with tables (75.0 % saved)
  [4]
  $ trelvoctl train -o dumps --force --policy-version 1 --policy capture coded.dump 2>&1 | head -1
  trelvoctl: coded.dump: 3 messages may be codes of policy version '7' and are left out; the tables are of version '1'
  $ trelvoctl train -o dumps --force --policy-version 1 --policy broken coded.dump | grep lines
  trelvoctl: broken/1-A.db: file is not a database
  lines          4; 0 coded (0.0 %)
  $ trelvoctl train -o none --policy-version 1 /proc/self/mem
  trelvoctl: /proc/self/mem: Input/output error
  trelvoctl: nothing was written
  [3]
  $ printf '{"__REALTIME_TIMESTAMP":"1","__MONOTONIC_TIMESTAMP":"2000","_BOOT_ID":"1","PRIORITY":"6","SYSLOG_IDENTIFIER":"A","_PID":"1","MESSAGE":"hello"}\n' >one.json
  $ cat one.json one.json | trelvoctl train -o journal/ --policy-version 1 -
  policy         1 in journal/
  tags           1 with a table, of 1
  entries        1
  on disk        8268 bytes
  in the service about 21 bytes of memory (estimate)
  lines          2; 2 coded (100.0 %)
  message bytes  12 as text, 4 with tables (66.7 % saved)
  $ sqlite3 journal/*.db 'select * from HuffmanCode'
  hello|00000000
  $ printf 'no\nlog\n' >notes.txt
  $ trelvoctl train -o none --policy-version 1 notes.txt
  trelvoctl: notes.txt: none of 2 lines is capture text, which looks like this: 12.345 I/MY_TAG (P 1234, T 1240): main.c: run(52) > started
  trelvoctl: nothing was written
  [3]
  $ printf '1.000 I/A (P 1, T 1): \\x00\n%.0s' 1 2 | make_dump codes.dump 7
  $ trelvoctl train -o none --policy-version 1 codes.dump
  trelvoctl: codes.dump: 2 messages may be codes of policy version '7' and are left out; --policy gives its tables
  trelvoctl: nothing was written
  [4]
  $ head -c -2 codes.dump >damaged.dump
  $ trelvoctl train -o none --policy-version 1 damaged.dump
  trelvoctl: damaged.dump: 1 messages may be codes of policy version '7' and are left out; --policy gives its tables
  trelvoctl: damaged.dump: offset 18: message is cut off
  trelvoctl: nothing was written
  [4]
  $ for format in capture dump export json; do
  >   trelvoctl train -o none --policy-version 1 --format $format counts.tsv 2>&1 | head -1
  > done
  trelvoctl: counts.tsv: none of 5 lines is capture text, which looks like this: 12.345 I/MY_TAG (P 1234, T 1240): main.c: run(52) > started
  trelvoctl: counts.tsv: offset 0: policy version is negative (-63)
  trelvoctl: counts.tsv: entry 1: a field is cut off
  trelvoctl: counts.tsv: line 1: not an entry of a journal
  $ ls none
  ls: cannot access 'none': No such file or directory
  [2]
  $ trelvoctl train -o none --policy-version '' counts.tsv
  trelvoctl: --policy-version: must be UTF-8 without control characters, and not empty
  [2]
  $ trelvoctl train -o none --policy-version 1 --max-memory 1 counts.tsv
  trelvoctl: --max-memory: dropped 5 of the rarest texts, which had been seen 40 times at most
  policy         1 in none
  tags           0 with a table, of 0
  entries        0
  on disk        43 bytes
  in the service about 0 bytes of memory (estimate)
  lines          57; 0 coded (0.0 %)
  message bytes  507 as text, 507 with tables (0.0 % saved)

  $ for text in '\x01' one; do printf "A\t$text\t1\nA\tanother\t2\n" >two.tsv
  >   trelvoctl train -o none --policy-version 1 --max-memory 300 --force two.tsv 2>&1 >/dev/null; done
  trelvoctl: --max-memory: dropped 2 of the rarest texts, which had been seen 2 times at most; some were not text, and a code may be the same: give more memory
  trelvoctl: --max-memory: dropped 2 of the rarest texts, which had been seen 2 times at most
  $ rm -r none

The same log gives the same policy, also where many texts come equally often.

  $ seq -f $'A\ttext number %.0f\t3' 300 >even.tsv
  $ for copy in even odd; do trelvoctl train -o $copy --policy-version 1 even.tsv >/dev/null; done
  $ diff -r even odd

A capture whose compressed file is cut off gives the lines before that.

  $ printf '1.000 I/A (P 1, T 1): f: g(1) > %s\n' a b | zstd -qo whole.zst
  $ (cat whole.zst; head -c 20 whole.zst) > cut.zst
  $ trelvoctl train -o shorter --policy-version 1 cut.zst
  trelvoctl: cut.zst: offset 57: the zstd frame that begins here is cut off
  policy         1 in shorter
  tags           0 with a table, of 1
  entries        0
  on disk        43 bytes
  in the service about 0 bytes of memory (estimate)
  lines          2; 0 coded (0.0 %)
  message bytes  4 as text, 4 with tables (0.0 % saved)
  [3]

What stands in the way of a policy stays, also what comes while it is trained.

  $ ln -s nowhere dangling; trelvoctl train -o dangling --force --policy-version 1 counts.tsv
  trelvoctl: dangling: not a folder; left unchanged
  [2]
  $ trelvoctl train -o other --policy-version 1 --format counts --evaluate capture.txt counts.tsv | tail -2
    lines        4; 4 coded (100.0 %), 1 refused
    bytes a line 44.50 as text, 10.50 without tables, 4.00 with tables
  $ (seq -f $'A\t%.0f\t1' 20000; touch other/notes) |
  >     trelvoctl train -o other --force --policy-version 1 --format counts -
  trelvoctl: other: holds more than a policy (notes) and is kept
  [5]
  $ ls other
  1-A.db
  2-B.db
  notes
  policy_version.xml

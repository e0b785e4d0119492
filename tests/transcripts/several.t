Dumps of two boots, of which one has no clock lines, and of a second machine.

  $ make_dump 1.dump "" 5 <<'END'
  > 10.000 I/A (P 1, T 1): before the clock
  > 10.500 I/trelvo.clock (P 7, T 7): boot=0123456789abcdef0123456789abcdef host=till wall=1764000010.500000 monotonic=10.500000
  > 10.500 I/A (P 1, T 1): one
  > 11.000 W/B (P 2, T 2): two
  > END
  $ make_dump 2.dump "" 5 <<'END'
  > 10.000 I/A (P 1, T 1): before the clock
  > 10.500 I/trelvo.clock (P 7, T 7): boot=0123456789abcdef0123456789abcdef host=till wall=1764000010.500000 monotonic=10.500000
  > 10.500 I/A (P 1, T 1): one
  > 11.000 W/B (P 2, T 2): two
  > 12.000 I/A (P 1, T 1): three
  > END
  $ make_dump 3.dump "" 900 <<'END'
  > 20.000 I/A (P 1, T 1): after a gap
  > 21.000 I/A (P 1, T 1): four
  > END
  $ make_dump 4.dump <<'END'
  > 3.000 I/A (P 1, T 1): of another boot
  > END
  $ make_dump 5.dump "" 5 <<'END'
  > 5.000 E/A (P 1, T 1): and its end
  > 6.000 I/trelvo.clock (P 7, T 7): boot=fedcba98765432100123456789abcdef host=till wall=1764000106.000000 monotonic=6.000000
  > END
  $ make_dump other.dump <<'END'
  > 7.000 I/trelvo.clock (P 9, T 9): boot=00000000000000000000000000000001 host=door wall=1764000011.700000 monotonic=7.000000
  > 7.000 F/A (P 1, T 1): door open
  > END
  $ written() { touch -d "2025-11-24 $2" $1.dump; }
  $ written 1 16:00:11; written 2 16:00:12; written 3 16:00:21; written 4 16:01:43; written 5 16:01:46
  $ written other 16:01:44
  $ trelvoctl decode [1-5].dump
  2025-11-24 16:00:10.000 I/A (P 1): before the clock
  2025-11-24 16:00:10.500 I/A (P 1): one
  2025-11-24 16:00:11.000 W/B (P 2): two
  2025-11-24 16:00:12.000 I/A (P 1): three
  --------- gap: lines between 2025-11-24 16:00:12.000 and 2025-11-24 16:00:20.000 are in none of the dumps
  2025-11-24 16:00:20.000 I/A (P 1): after a gap
  2025-11-24 16:00:21.000 I/A (P 1): four
  --------- reboot: time starts over
  2025-11-24 16:01:43.000 I/A (P 1): of another boot
  --------- gap: lines between 2025-11-24 16:01:43.000 and 2025-11-24 16:01:45.000 are in none of the dumps
  2025-11-24 16:01:45.000 E/A (P 1): and its end
  $ trelvoctl decode .
  2025-11-24 16:00:10.000 till I/A (P 1): before the clock
  2025-11-24 16:00:10.500 till I/A (P 1): one
  2025-11-24 16:00:11.000 till W/B (P 2): two
  2025-11-24 16:00:11.700 door F/A (P 1): door open
  2025-11-24 16:00:12.000 till I/A (P 1): three
  --------- till: gap: lines between 2025-11-24 16:00:12.000 and 2025-11-24 16:00:20.000 are in none of the dumps
  2025-11-24 16:00:20.000 till I/A (P 1): after a gap
  2025-11-24 16:00:21.000 till I/A (P 1): four
  --------- till: reboot: time starts over
  2025-11-24 16:01:43.000 till I/A (P 1): of another boot
  --------- till: gap: lines between 2025-11-24 16:01:43.000 and 2025-11-24 16:01:45.000 are in none of the dumps
  2025-11-24 16:01:45.000 till E/A (P 1): and its end
  $ trelvoctl decode -o json . 2>/dev/null | cut -d , -f 1-4
  {"time_ms":10000,"time":"2025-11-24T16:00:10.000+00:00","host":"till","level":"I"
  {"time_ms":10500,"time":"2025-11-24T16:00:10.500+00:00","host":"till","level":"I"
  {"time_ms":11000,"time":"2025-11-24T16:00:11.000+00:00","host":"till","level":"W"
  {"time_ms":7000,"time":"2025-11-24T16:00:11.700+00:00","host":"door","level":"F"
  {"time_ms":12000,"time":"2025-11-24T16:00:12.000+00:00","host":"till","level":"I"
  {"time_ms":20000,"time":"2025-11-24T16:00:20.000+00:00","host":"till","level":"I"
  {"time_ms":21000,"time":"2025-11-24T16:00:21.000+00:00","host":"till","level":"I"
  {"time_ms":3000,"time":"2025-11-24T16:01:43.000+00:00","host":"till","level":"I"
  {"time_ms":5000,"time":"2025-11-24T16:01:45.000+00:00","host":"till","level":"E"
  $ trelvoctl decode -o csv [1-3].dump | cut -d , -f 1-3,7-
  trelvoctl: 3.dump: gap: lines between 2025-11-24 16:00:12.000 and 2025-11-24 16:00:20.000 are in none of the dumps
  time_ms,time,level,message,coded,file,bytes
  10000,2025-11-24T16:00:10.000+00:00,I,before the clock,false,1.dump,
  10500,2025-11-24T16:00:10.500+00:00,I,one,false,1.dump,
  11000,2025-11-24T16:00:11.000+00:00,W,two,false,1.dump,
  12000,2025-11-24T16:00:12.000+00:00,I,three,false,2.dump,
  20000,2025-11-24T16:00:20.000+00:00,I,after a gap,false,3.dump,
  21000,2025-11-24T16:00:21.000+00:00,I,four,false,3.dump,
  $ cat 4.dump | TZ=Asia/Kolkata trelvoctl decode -o threadtime - 1.dump
  trelvoctl: wall-clock times of dumps without clock lines are a guess by the files' own times: late by as long as nothing was logged before a dump; the longest silence in them is 0.500 s
  11-24 21:30:10.000     1     1 I A       : before the clock
  11-24 21:30:10.500     1     1 I A       : one
  11-24 21:30:11.000     2     2 W B       : two
  --------- reboot: time starts over
  01-01 00:00:03.000     1     1 I A       : of another boot
  $ cat 4.dump | trelvoctl decode -n 1 - 1.dump 2>/dev/null
  --------- reboot: time starts over
                    3.000 I/A (P 1): of another boot
  $ cat 4.dump | trelvoctl decode -n 1 -o json - 1.dump 2>/dev/null | cut -d , -f 1-3
  {"time_ms":3000,"level":"I","tag":"A"
  $ make_dump odd.dump <<'END'
  > 8.000 I/trelvo.clock (P 9, T 9): boot=00000000000000000000000000000002 host=a\xff"b wall=1764000011.700000 monotonic=8.000000
  > 8.000 F/A (P 1, T 1): odd
  > END
  $ trelvoctl decode -g 'end' [1-5].dump
  --------- reboot: time starts over
  2025-11-24 16:01:45.000 E/A (P 1): and its end
  $ make_dump late.dump <<'END'
  > 15.800 I/trelvo.clock (P 9, T 9): boot=00000000000000000000000000000001 host=door wall=1764000020.500000 monotonic=15.800000
  > 15.800 F/A (P 1, T 1): door shut
  > END
  $ trelvoctl decode -g 'shut|four' 2.dump 3.dump late.dump
  2025-11-24 16:00:20.500 door F/A (P 1): door shut
  --------- till: gap: lines between 2025-11-24 16:00:12.000 and 2025-11-24 16:00:20.000 are in none of the dumps
  2025-11-24 16:00:21.000 till I/A (P 1): four
  $ trelvoctl patterns --lines -o json -g one 2.dump 3.dump
  {"time_ms":10500,"time":"2025-11-24T16:00:10.500+00:00","level":"I","tag":"A","pid":1,"tid":1,"message":"one","coded":false,"file":"2.dump","pattern":1}
  $ rm late.dump
  $ trelvoctl decode -o csv odd.dump other.dump | cut -d , -f 3
  host
  "a\xef\xbf\xbd""b" (esc)
  door
  $ rm odd.dump
  $ trelvoctl decode --monotonic [1-5].dump
  10.000 I/A (P 1): before the clock
  10.500 I/A (P 1): one
  11.000 W/B (P 2): two
  12.000 I/A (P 1): three
  --------- gap: lines between 12.000 and 20.000 are in none of the dumps
  20.000 I/A (P 1): after a gap
  21.000 I/A (P 1): four
  --------- reboot: time starts over
   3.000 I/A (P 1): of another boot
  --------- gap: lines between 3.000 and 5.000 are in none of the dumps
   5.000 E/A (P 1): and its end
  $ trelvoctl decode --monotonic --since -2s [1-5].dump
  --------- reboot: time starts over
   5.000 E/A (P 1): and its end
  $ trelvoctl decode --wall 4.dump
  trelvoctl: wall-clock times of dumps without clock lines are a guess by the files' own times: late by as long as nothing was logged before a dump; the longest silence in them is 0.000 s
  2025-11-24 16:01:43.000 I/A (P 1): of another boot
  $ trelvoctl decode --boot-time 2025-11-24T12:00:00Z 4.dump
  2025-11-24 12:00:03.000 I/A (P 1): of another boot
  $ TZ=Asia/Kolkata trelvoctl decode --utc --boot-time '2025-11-24 12:00' 4.dump
  2025-11-24 12:00:03.000Z I/A (P 1): of another boot
  $ TZ=Asia/Kolkata trelvoctl decode -o json --boot-time '2025-11-24 12:00' 4.dump | cut -d , -f 2
  "time":"2025-11-24T12:00:03.000+05:30"
  $ trelvoctl decode -o export 4.dump
  trelvoctl: wall-clock times of dumps without clock lines are a guess by the files' own times: late by as long as nothing was logged before a dump; the longest silence in them is 0.000 s
  __REALTIME_TIMESTAMP=1764000103000000
  __MONOTONIC_TIMESTAMP=3000000
  _BOOT_ID=A46163EF6EDDACA04A36242CD31BBB2F
  PRIORITY=6
  SYSLOG_IDENTIFIER=A
  _PID=1
  TID=1
  MESSAGE=of another boot
  
  $ trelvoctl decode -o export [1-4].dump | grep -aE 'BOOT|REAL|HOST'
  trelvoctl: wall-clock times of dumps without clock lines are a guess by the files' own times: late by as long as nothing was logged before a dump; the longest silence in them is 1.000 s
  trelvoctl: 3.dump: gap: lines between 2025-11-24 16:00:12.000 and 2025-11-24 16:00:20.000 are in none of the dumps
  trelvoctl: 4.dump: reboot: time starts over
  __REALTIME_TIMESTAMP=1764000010000000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  __REALTIME_TIMESTAMP=1764000010500000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  __REALTIME_TIMESTAMP=1764000011000000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  __REALTIME_TIMESTAMP=1764000012000000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  __REALTIME_TIMESTAMP=1764000020000000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  __REALTIME_TIMESTAMP=1764000021000000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  __REALTIME_TIMESTAMP=1764000103000000
  _BOOT_ID=A46163EF6EDDACA04A36242CD31BBB2F
  _HOSTNAME=till
  $ written 3 16:05:00
  $ trelvoctl decode --one-boot --monotonic [2-4].dump
   3.000 I/A (P 1): of another boot
  --------- gap: lines between 3.000 and 10.000 are in none of the dumps
  10.000 I/A (P 1): before the clock
  10.500 I/A (P 1): one
  11.000 W/B (P 2): two
  12.000 I/A (P 1): three
  --------- gap: lines between 12.000 and 20.000 are in none of the dumps
  20.000 I/A (P 1): after a gap
  21.000 I/A (P 1): four
  $ trelvoctl stat .
  6 dumps: 12 lines in 4.000 s, 3.0 a second
    repeated        4 lines that several dumps hold, counted once
    levels          D 0  I 9  W 1  E 1  F 1
  
       lines      %  tag
           8   66.7  A
           3   25.0  trelvo.clock
           1    8.3  B
  
       lines      %  program
           8   66.7  A (4 processes)
           3   25.0  trelvo.clock (3 processes)
           1    8.3  B
  
       lines       size           span a second bytes/line coded% text/dump  file
           4      164 B        1.000 s      4.0      31.75    0.0      1.31  ./1.dump
           5      173 B        2.000 s      2.5      27.20    0.0      1.40  ./2.dump
           1       29 B        0.000 s        -      18.00    0.0      1.28  ./4.dump
           2      134 B        0.000 s        -      52.50    0.0      1.14  ./other.dump
           2      137 B        1.000 s      2.0      54.00    0.0      1.13  ./5.dump
           2       35 B        1.000 s      2.0      11.50    0.0      1.74  ./3.dump
          12      672 B        4.000 s      3.0      32.31    0.0      1.29  total, each line once
  $ trelvoctl stat -o json 1.dump 2.dump
  {"file":"1.dump","policy_version":"","bytes":164,"compressed_bytes":null,"dictionary_bytes":32,"first_ms":10000,"last_ms":11000,"span_ms":1000,"host":"till","first_time":"2025-11-24T16:00:10.000+00:00","last_time":"2025-11-24T16:00:11.000+00:00","records":4,"shared_records":0,"records_per_second":4.0,"bytes_per_second":127.0,"levels":{"I":3,"W":1},"coded_by":"not text","coded_records":0,"coded_bytes":0,"record_bytes":{"delta":6,"header":4,"length":5,"message":112,"total":127},"text_bytes":215,"timeline":[1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,2,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1],"tags":[{"tag":"A","records":2,"bytes":25},{"tag":"trelvo.clock","records":1,"bytes":95},{"tag":"B","records":1,"bytes":7}],"programs":[{"program":"A","records":2,"bytes":25},{"program":"trelvo.clock","records":1,"bytes":95},{"program":"B","records":1,"bytes":7}],"processes":[{"process":"A,1","records":2,"bytes":25},{"process":"trelvo.clock,7","records":1,"bytes":95},{"process":"B,2","records":1,"bytes":7}],"damage":null}
  {"file":"2.dump","policy_version":"","bytes":173,"compressed_bytes":null,"dictionary_bytes":32,"first_ms":10000,"last_ms":12000,"span_ms":2000,"host":"till","first_time":"2025-11-24T16:00:10.000+00:00","last_time":"2025-11-24T16:00:12.000+00:00","records":5,"shared_records":4,"records_per_second":2.5,"bytes_per_second":68.0,"levels":{"I":4,"W":1},"coded_by":"not text","coded_records":0,"coded_bytes":0,"record_bytes":{"delta":8,"header":5,"length":6,"message":117,"total":136},"text_bytes":243,"timeline":[1,0,0,0,0,0,0,0,0,0,0,0,0,0,2,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1],"tags":[{"tag":"A","records":3,"bytes":34},{"tag":"trelvo.clock","records":1,"bytes":95},{"tag":"B","records":1,"bytes":7}],"programs":[{"program":"A","records":3,"bytes":34},{"program":"trelvo.clock","records":1,"bytes":95},{"program":"B","records":1,"bytes":7}],"processes":[{"process":"A,1","records":3,"bytes":34},{"process":"trelvo.clock,7","records":1,"bytes":95},{"process":"B,2","records":1,"bytes":7}],"damage":null}
  $ trelvoctl stat -v 1.dump
  1.dump: 4 lines in 1.000 s, 4.0 a second
    time            2025-11-24 16:00:10.000 to 2025-11-24 16:00:11.000, on till
    size            164 B, 31.75 bytes a line
    as text         215 B, 53.75 a line, 1.31 times the dump
    levels          D 0  I 3  W 1  E 0  F 0
    coded           0 lines, 0.0 %
    policy version  none
    dictionary      32 B, 3 tags, 3 processes
    bytes a record  31.75 = delta 1.50 + header 1.00 + length 1.25 + message 28.00
    over time       ▄                            █                             ▄
  
       lines      %       size      %  tag
           2   50.0       25 B   19.7  A
           1   25.0       95 B   74.8  trelvo.clock
           1   25.0        7 B    5.5  B
  
       lines      %       size      %  program
           2   50.0       25 B   19.7  A
           1   25.0       95 B   74.8  trelvo.clock
           1   25.0        7 B    5.5  B
  
       lines      %       size      %  process (tag,pid)
           2   50.0       25 B   19.7  A,1
           1   25.0       95 B   74.8  trelvo.clock,7
           1   25.0        7 B    5.5  B,2
  $ TZ=Asia/Kolkata trelvoctl stat 1.dump | grep '^  time'
    time            2025-11-24 21:30:10.000 to 2025-11-24 21:30:11.000, on till
  $ TZ=Asia/Kolkata trelvoctl patterns --utc 1.dump | tail -1
          1 W 11-24 16:00:11.000 11-24 16:00:11.000                                \xe2\x96\x88 two (esc)
  $ TZ=Asia/Kolkata trelvoctl stat -o json 1.dump | grep -o '"first_time.*"last_time[^,]*'
  "first_time":"2025-11-24T21:30:10.000+05:30","last_time":"2025-11-24T21:30:11.000+05:30"
  $ trelvoctl stat -v 1.dump 2.dump | grep 'lines in\|bytes a record'
  2 dumps: 5 lines in 2.000 s, 2.5 a second
  1.dump: 4 lines in 1.000 s, 4.0 a second
    bytes a record  31.75 = delta 1.50 + header 1.00 + length 1.25 + message 28.00
  2.dump: 5 lines in 2.000 s, 2.5 a second
    bytes a record  27.20 = delta 1.60 + header 1.00 + length 1.20 + message 23.40
  $ zstd -q 4.dump; trelvoctl stat --top 1 4.dump.zst
  4.dump.zst: 1 line in 0.000 s, - a second
    time            3.000 to 3.000 seconds after the start of the machine
    size            29 B, 18.00 bytes a line, compressed 42 B
    as text         37 B, 37.00 a line, 1.28 times the dump
    levels          D 0  I 1  W 0  E 0  F 0
    coded           0 lines, 0.0 %
    over time       █                                                           
  
       lines      %       size      %  tag
           1  100.0       18 B  100.0  A
  
       lines      %       size      %  program
           1  100.0       18 B  100.0  A
  $ trelvoctl patterns .
  trelvoctl: wall-clock times of dumps without clock lines are a guess by the files' own times: late by as long as nothing was logged before a dump; the longest silence in them is 1.000 s
  trelvoctl: ./4.dump: till: reboot: time starts over
  trelvoctl: ./5.dump: till: gap: lines between 2025-11-24 16:01:43.000 and 2025-11-24 16:01:45.000 are in none of the dumps
  trelvoctl: ./3.dump: till: reboot: time starts over
      COUNT L              FIRST               LAST TIMELINE           PATTERN
          1 I 11-24 16:00:10.000 11-24 16:00:10.000 █                  before the clock
          1 I 11-24 16:00:10.500 11-24 16:00:10.500 █                  one
          1 W 11-24 16:00:11.000 11-24 16:00:11.000 █                  two
          1 F 11-24 16:00:11.700 11-24 16:00:11.700 █                  door open
          1 I 11-24 16:00:12.000 11-24 16:00:12.000 █                  three
          1 I 11-24 16:01:43.000 11-24 16:01:43.000      █             of another boot
          1 E 11-24 16:01:45.000 11-24 16:01:45.000      █             and its end
          1 I 11-24 16:04:59.000 11-24 16:04:59.000                  █ after a gap
          1 I 11-24 16:05:00.000 11-24 16:05:00.000                  █ four
  $ trelvoctl patterns -o json 2.dump 5.dump
  trelvoctl: 5.dump: reboot: time starts over
  {"pattern":1,"text":"before the clock","count":1,"level":"I","levels":{"I":1},"first":{"time_ms":10000,"time":"2025-11-24T16:00:10.000+00:00"},"last":{"time_ms":10000,"time":"2025-11-24T16:00:10.000+00:00"},"part_ms":4096,"timeline":[1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0],"tag":"A","example":"before the clock","folded":false}
  {"pattern":2,"text":"one","count":1,"level":"I","levels":{"I":1},"first":{"time_ms":10500,"time":"2025-11-24T16:00:10.500+00:00"},"last":{"time_ms":10500,"time":"2025-11-24T16:00:10.500+00:00"},"part_ms":4096,"timeline":[1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0],"tag":"A","example":"one","folded":false}
  {"pattern":3,"text":"two","count":1,"level":"W","levels":{"W":1},"first":{"time_ms":11000,"time":"2025-11-24T16:00:11.000+00:00"},"last":{"time_ms":11000,"time":"2025-11-24T16:00:11.000+00:00"},"part_ms":4096,"timeline":[1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0],"tag":"B","example":"two","folded":false}
  {"pattern":4,"text":"three","count":1,"level":"I","levels":{"I":1},"first":{"time_ms":12000,"time":"2025-11-24T16:00:12.000+00:00"},"last":{"time_ms":12000,"time":"2025-11-24T16:00:12.000+00:00"},"part_ms":4096,"timeline":[1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0],"tag":"A","example":"three","folded":false}
  {"pattern":5,"text":"and its end","count":1,"level":"E","levels":{"E":1},"first":{"time_ms":5000,"time":"2025-11-24T16:01:45.000+00:00"},"last":{"time_ms":5000,"time":"2025-11-24T16:01:45.000+00:00"},"part_ms":4096,"timeline":[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1],"tag":"A","example":"and its end","folded":false}

A clock that is set within a boot leaves the pattern's timeline as it is.

  $ make_dump ../set.dump <<'END'
  > 1.000 I/trelvo.clock (P 7, T 7): boot=0123456789abcdef0123456789abcdef host=till wall=1.000000 monotonic=1.000000
  > 1.000 I/A (P 1, T 1): up
  > 2.000 I/A (P 1, T 1): up
  > 3.000 I/trelvo.clock (P 7, T 7): boot=0123456789abcdef0123456789abcdef host=till wall=1764000003.000000 monotonic=3.000000
  > 3.000 I/A (P 1, T 1): up
  > END
  $ trelvoctl patterns ../set.dump
      COUNT L              FIRST               LAST TIMELINE                         PATTERN
          3 I 01-01 00:00:01.000 11-24 16:00:03.000 █              █               █ up
  $ rm ../set.dump

A service that was started again records lines once more; they are shown once, in order.

  $ make_dump again.dump <<'END'
  > 11.000 W/B (P 2, T 2): two
  > 11.900 I/A (P 1, T 1): missed
  > 12.000 I/A (P 1, T 1): three
  > 13.000 I/A (P 1, T 1): new
  > END
  $ written 2 16:00:12; written again 16:00:13
  $ trelvoctl decode --monotonic 2.dump again.dump
  10.000 I/A (P 1): before the clock
  10.500 I/A (P 1): one
  11.000 W/B (P 2): two
  --------- restart: the service was started again and recorded this boot once more
  11.900 I/A (P 1): missed
  12.000 I/A (P 1): three
  13.000 I/A (P 1): new
  $ (echo '9.000 I/A (P 1, T 1): early'; trelvoctl decode --monotonic 2.dump; echo '13.000 I/A (P 1, T 1): new') |
  >     sed 's/(P \([0-9]*\))/(P \1, T \1)/' | make_dump early.dump
  $ written early 16:00:13
  $ trelvoctl stat 2.dump early.dump | head -1
  2 dumps: 7 lines in 4.000 s, 1.8 a second
  $ trelvoctl decode --monotonic 2.dump early.dump
  --------- restart: the service was started again and recorded this boot once more
   9.000 I/A (P 1): early
  10.000 I/A (P 1): before the clock
  10.500 I/A (P 1): one
  11.000 W/B (P 2): two
  12.000 I/A (P 1): three
  13.000 I/A (P 1): new

A folder may be called as a command is.

  $ mkdir stat; cp 4.dump stat; trelvoctl decode stat
  3.000 I/A (P 1): of another boot

A machine that was given its name after its start.

  $ for host in localhost till; do
  >   echo "8.000 I/trelvo.clock (P 9, T 9): boot=00000000000000000000000000000002 host=$host wall=1764000012.700000 monotonic=8.000000"
  > done | make_dump named.dump
  $ trelvoctl stat -o json named.dump | grep -o '"host":"[a-z]*"'
  "host":"till"

A machine that has been up for 60 days, where lines have times of clock lines only; the second dump
holds the first one's last lines.

  $ lines() {
  >   for i in $(seq $1 $2); do
  >     clock="wall=$((1764000000 + i)).000000 monotonic=$((5184000 + i)).000000"
  >     echo "2147483.647 I/trelvo.clock (P 9, T 9): boot=00000000000000000000000000000003 host=old $clock"
  >     echo "2147483.647 I/A (P 1, T 1): line $i"
  >   done
  > }
  $ lines 0 100 | make_dump up1.dump; lines 40 120 | make_dump up2.dump
  $ trelvoctl stat up2.dump | head -1
  up2.dump: 162 lines in 1 min 20 s, 2.0 a second
  $ trelvoctl stat up1.dump up2.dump | sed -n '1p;/file$/,$p'
  2 dumps: 242 lines in 2 min 0 s, 2.0 a second
       lines       size           span a second bytes/line coded% text/dump  file
         202   10.6 KiB     1 min 40 s      2.0      53.96    0.0      1.55  up1.dump
         162    8.5 KiB     1 min 20 s      2.0      54.13    0.0      1.55  up2.dump
         242   19.2 KiB      2 min 0 s      2.0      54.03    0.0      1.55  total, each line once
  $ lines 40 60 | make_dump within.dump; lines 70 120 | make_dump up3.dump
  $ trelvoctl stat up1.dump within.dump up3.dump | sed -n '1s/.* in \(.*\),.*/\1/p'
  2 min 0 s
  $ touch -d 2025-11-24 up2.dump; trelvoctl stat up1.dump up2.dump | grep -o 'up[12].*'
  up1.dump
  up2.dump
  $ for at in 5184000.500000 5184000.000000; do
  >   echo "2147483.647 I/trelvo.clock (P 9, T 9): boot=00000000000000000000000000000003 host=old wall=1764000012.700000 monotonic=$at"
  > done | make_dump back.dump
  $ trelvoctl stat back.dump | head -1
  back.dump: 2 lines in 0.000 s, - a second

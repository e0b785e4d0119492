What the service says of a configuration and of launch arguments before it records anything.

  $ check() { cat >test.conf; trelvo --check test.conf; }
  $ check <<'END'
  > [recorder]
  > tags = *:I; kernel:W ;noisy:S
  > size = 64 MiB
  > size-counts = memory
  > capture = 512 KiB
  > tables = server
  > [policy]
  > rows = 100
  > memory = 1 GiB
  > seconds = 5
  > [dump]
  > triggers = timer; poweroff; match
  > timer = 60
  > match = *:F; kernel:E:Out of memory
  > form = zstd
  > [log]
  > threshold = debug
  > END
  test.conf: valid
  $ check <<'END'
  > [recorder]
  > tags = *; x:Q; a b:I; ;
  > size = 12 parsecs
  > size-counts = lines
  > capture = 0
  > tables = both
  > colour = red
  > [policy]
  > rows = many
  > memory = -1
  > seconds = 0
  > [dump]
  > triggers = timer; sometimes; match; bufferfull
  > timer = 0
  > match = F
  > match-delay = never
  > form = paper
  > group = nobody at all
  > [log]
  > threshold = loud
  > [other]
  > END
  trelvo: test.conf: [recorder] colour: unknown key
  trelvo: test.conf: [other]: unknown group
  trelvo: test.conf: [recorder] tags: '*' is not TAG:LEVEL
  trelvo: test.conf: [recorder] tags: '' is not TAG:LEVEL
  trelvo: test.conf: [recorder] size: '12 parsecs' is not a size such as 512 KiB or 10 MiB
  trelvo: test.conf: [recorder] capture: '0' is not a size such as 512 KiB or 10 MiB
  trelvo: test.conf: [recorder] tables: 'both' is not one of default, server
  trelvo: test.conf: [policy] memory: '-1' is not a size such as 512 KiB or 10 MiB
  trelvo: test.conf: [dump] group: 'nobody at all' is not a group of this machine
  trelvo: test.conf: [log] threshold: 'loud' is not one of verbose debug info warning error fatal silent
  [2]
  $ check <<'END'
  > [recorder]
  > tags = x:Q; a b:I
  > size-counts = lines
  > [policy]
  > rows = many
  > seconds = 0
  > [dump]
  > triggers = timer; sometimes; match; bufferfull
  > match = F
  > match-delay = never
  > form = paper
  > END
  trelvo: test.conf: [recorder] tags: 'a b' is not a tag: blanks and |&;<>()$`\"'#~{}[]?!* cannot be part of one; * alone stands for all other tags
  trelvo: test.conf: [recorder] tags: 'Q': a level is one of V D I W E F, or S for nothing
  trelvo: test.conf: [dump] triggers: 'sometimes' is not one of timer, poweroff, bufferfull, match
  trelvo: test.conf: [dump] match-delay: 'never' is not a number of seconds, from 0 to 1000000
  trelvo: test.conf: [dump] timer: missing; the trigger timer needs its seconds
  trelvo: test.conf: [dump] match: 'F' is not TAG:LEVEL[:TEXT]
  trelvo: test.conf: [recorder] size-counts: 'lines' is not one of records, memory
  trelvo: test.conf: [policy] rows: 'many' is not a number of rows, from 1 to 999999999
  trelvo: test.conf: [policy] seconds: '0' is not a number of seconds, from 1 to 999999999
  trelvo: test.conf: [dump] form: 'paper' is not one of plain, zstd
  [2]
  $ check <<'END'
  > [dump]
  > triggers = match
  > match-rest = -1
  > [recorder]
  > size = 3 GiB
  > size = 1 KiB
  > END
  trelvo: test.conf: [dump] match-rest: '-1' is not a number of seconds, from 0 to 1000000
  trelvo: test.conf: [dump] match: missing; the trigger match needs its TAG:LEVEL[:TEXT]
  [2]
  $ check <<'END'
  > tags = *:I
  > END
  trelvo: test.conf: Key file does not start with a group
  [2]
  $ check </dev/null
  test.conf: valid
  $ trelvo --check missing.conf
  trelvo: missing.conf: No such file or directory
  [2]
  $ trelvo --nonsense
  trelvo: '--nonsense': unknown option
  [2]
  $ trelvo LOGTAG=A/B LOGLEVEL=V RQBBUFFER=1024 POLICYMODE=0
  trelvo: LOGLEVEL: 1 levels for 2 tags; every tag of LOGTAG needs its own
  [2]
  $ trelvo LOGTAG='A;rm' LOGLEVEL=V RQBBUFFER=many POLICYMODE= DLOGDUMPMODE=timer COLOUR=red
  trelvo: 'COLOUR': unknown key
  trelvo: LOGTAG: 'A;rm' is not a tag: blanks and |&;<>()$`\"'#~{}[]?!* cannot be part of one; * alone stands for all other tags
  trelvo: RQBBUFFER: 'many' is not a number of KiB, from 1 to 2147483647
  trelvo: POLICYMODE: '' is not a number of the policy, 0 for Default and 1 for Server, from 0 to 2147483647
  trelvo: DLOGDUMPVALUE: missing; the trigger timer needs its seconds
  [2]
  $ trelvo LOGTAG=A LOGLEVEL=X RQBBUFFER=0 POLICYMODE=x RQBCOUNT=lines RQBHISTORY=-1 DUMPFORM=paper
  trelvo: LOGLEVEL: 'X': a level is one of V D I W E F, or S for nothing
  trelvo: RQBBUFFER: '0' is not a number of KiB, from 1 to 2147483647
  trelvo: POLICYMODE: 'x' is not a number of the policy, 0 for Default and 1 for Server, from 0 to 2147483647
  trelvo: RQBCOUNT: 'lines' is not one of records, memory
  trelvo: RQBHISTORY: '-1' is not a number of KiB, from 1 to 999999999
  trelvo: DUMPFORM: 'paper' is not one of plain, zstd
  [2]
  $ trelvo LOGTAG=A LOGLEVEL=V RQBBUFFER=1024 POLICYMODE=0 DLOGDUMPMODE='timer&match&noon' DLOGDUMPVALUE=0 DLOGDUMPMATCH='A&x:e&x:S:text' DLOGDUMPDELAY=2000000
  trelvo: DLOGDUMPMODE: 'noon' is not one of timer, poweroff, bufferfull, match
  trelvo: DLOGDUMPVALUE: '0' is not a number of seconds, from 1 to 2147483647
  trelvo: DLOGDUMPDELAY: '2000000' is not a number of seconds, from 0 to 1000000
  trelvo: DLOGDUMPMATCH: 'A' is not TAG:LEVEL[:TEXT]
  trelvo: DLOGDUMPMATCH: 'e': the least level to match is one of V D I W E F
  trelvo: DLOGDUMPMATCH: 'S': the least level to match is one of V D I W E F
  [2]
  $ trelvo DUMP=/tmp
  trelvo: DUMP: nothing is recorded yet; start the recording first, with LOGTAG, LOGLEVEL, RQBBUFFER, POLICYMODE
  [2]
  $ trelvo LOGTAG=A LOGTAG=B nonsense
  trelvo: 'LOGTAG': given twice
  trelvo: 'nonsense': not KEY=VALUE
  [2]
  $ trelvoctl launch DUMP=/nowhere 2>&1 | sed 's|at .*launch.sock|at launch.sock|'
  trelvoctl: no service answers at launch.sock: Could not connect: No such file or directory
  $ trelvoctl launch nonsense
  trelvoctl: launch: 'nonsense' has no '='; expected KEY=VALUE
  [2]
  $ trelvoctl dump /nowhere
  trelvoctl: dump: /nowhere: No such file or directory
  [2]
  $ trelvoctl dump --timeout 0 .
  trelvoctl: --timeout: Value 0 not in range 1 to 3600
  [2]

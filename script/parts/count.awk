# What the tests came to, out of CTest's LastTest.log, whether a process of theirs was one test or many: a line of
# counts, "3 skipped in system" if that were so, and each reason of a skip with its count.
/^[0-9]+\/[0-9]+ Testing: / {
    program = $3
    told = broken = isSkipped = 0
}
/\[       OK \] .* \([0-9]+ ms\)$/ { passed++; told++ }
/\[  FAILED  \] .* \([0-9]+ ms\)$/ { failed++; told++; broken++ }
/\[  SKIPPED \] .* \([0-9]+ ms\)$/ { skip(); told++ }
isReason { reasons[$0]++; isReason = 0 }
/: Skipped$/ { isReason = 1 }
sub(/^skipped: /, "") { isSkipped = 1; reasons[$0]++ }
/^Test Failed\.$/ && !broken { failed++ } # not by a test's own word: a crash, or the limit of time
/^Test Passed\.$/ && !told {
    if (isSkipped) skip()
    else passed++
}
function skip() {
    skipped++
    if (program ~ /^system\./) skippedInSystem++
}
END {
    printf "%d tests passed, %d failed, %d skipped\n", passed, failed, skipped
    if (skippedInSystem) print skippedInSystem " skipped in system"
    for (reason in reasons) printf "%7d skipped because %s\n", reasons[reason], reason | "sort -k 4"
}

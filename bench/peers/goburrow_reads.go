// Many devices by goburrow's client, a goroutine for each: PORT DEVICES SECONDS. Prints the same as
// the other programs of this folder. Built by bench/run.py where Go and the package
// golang-github-goburrow-modbus-dev are installed.
package main

import (
	"fmt"
	"os"
	"strconv"
	"sync/atomic"
	"syscall"
	"time"

	"github.com/goburrow/modbus"
)

const (
	firstRegister = 100
	registersRead = 10
	warmUp        = 300 * time.Millisecond
)

func fail(why string) {
	fmt.Fprintln(os.Stderr, why)
	os.Exit(1)
}

func processorUs() float64 {
	var usage syscall.Rusage
	if err := syscall.Getrusage(syscall.RUSAGE_SELF, &usage); err != nil {
		fail(err.Error())
	}
	us := func(t syscall.Timeval) float64 { return float64(t.Sec)*1e6 + float64(t.Usec) }
	return us(usage.Utime) + us(usage.Stime)
}

func readForEver(address string, reads *uint64, started func()) {
	client := modbus.TCPClient(address)
	for first := true; ; first = false {
		values, err := client.ReadHoldingRegisters(firstRegister, registersRead)
		if err != nil {
			fail(err.Error())
		}
		if len(values) != 2*registersRead || values[1] != firstRegister {
			fail("a wrong reply")
		}
		if first {
			started()
		}
		atomic.AddUint64(reads, 1)
	}
}

func main() {
	if len(os.Args) != 4 {
		fail("usage: goburrow_reads PORT DEVICES SECONDS")
	}
	devices, _ := strconv.Atoi(os.Args[2])
	seconds, _ := strconv.ParseFloat(os.Args[3], 64)
	if devices < 1 || seconds <= 0 {
		fail("usage: goburrow_reads PORT DEVICES SECONDS")
	}
	counters := make([][8]uint64, devices) // one on each line of memory
	started := make(chan bool, devices)
	for i := range counters {
		go readForEver("127.0.0.1:"+os.Args[1], &counters[i][0], func() { started <- true })
	}
	for range counters {
		<-started
	}
	sum := func() (reads uint64) {
		for i := range counters {
			reads += atomic.LoadUint64(&counters[i][0])
		}
		return
	}
	time.Sleep(warmUp)
	began, spent, before := time.Now(), processorUs(), sum()
	time.Sleep(time.Duration(seconds * float64(time.Second)))
	count := float64(sum() - before)
	fmt.Printf("{\"orders\":%.0f,\"ordersPerSecond\":%.1f,\"processorUsPerOrder\":%.4f}\n",
		count, count/time.Since(began).Seconds(), (processorUs()-spent)/count)
}

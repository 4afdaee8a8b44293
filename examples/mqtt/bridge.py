#!/usr/bin/python3
"""Joins a driver-host to an MQTT broker.

Orders come in on plant/NAME/orders, as the lines that `driver-host run` takes; events go out on
plant/NAME/events; plant/NAME/status is "online" while orders are taken, else "offline". The
interpreter is Debian's own, which the package python3-paho-mqtt is installed for.
"""

import argparse
import os
import queue
import signal
import subprocess
import sys
import threading
import time

from paho.mqtt import client as mqtt

MOST = 10000  # messages that wait, either way
LAST_WORD = 5  # seconds that the broker has to take the last events


class Bridge:
    def __init__(self, options):
        self.topic = f"plant/{options.name}/"
        self.orders = queue.SimpleQueue()
        self.online = threading.Event()
        self.stopped = False
        # A session of its own, so that Ctrl-C reaches the bridge only.
        self.host = subprocess.Popen([options.driver_host, "run", "-", "--quiet"], pipesize=1 << 18,
                                     stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     start_new_session=True)
        # The session is clean, so that no order is carried out long after it was given.
        self.client = mqtt.Client("driver-host " + options.name, clean_session=True)
        self.client.on_connect = self.connected
        self.client.on_subscribe = self.subscribed
        self.client.on_message = self.take
        self.client.on_disconnect = self.disconnected
        self.client.on_connect_fail = lambda *_: self.say("no broker, trying again")
        self.client.max_queued_messages_set(MOST)
        self.client.reconnect_delay_set(1, 10)
        self.client.will_set(self.topic + "status", "offline", qos=1, retain=True)
        if options.ca:
            self.client.tls_set(options.ca)
        if options.user:
            self.client.username_pw_set(options.user, os.environ.get("MQTT_PASSWORD"))
        self.client.connect_async(options.broker, options.port, keepalive=20)

    def say(self, text):
        print(self.topic + "status:", text, file=sys.stderr, flush=True)

    # The next four are called on the thread of the MQTT client, which must never wait.

    def connected(self, _client, _data, _flags, code):
        if code != mqtt.CONNACK_ACCEPTED:
            self.say(mqtt.connack_string(code))
            return
        self.client.subscribe(self.topic + "orders", qos=2)  # 2: no order is carried out twice

    def subscribed(self, _client, _data, _message, granted):
        if granted[0] > 2:
            self.say("the broker does not let the bridge have its orders")
            return
        self.client.publish(self.topic + "status", "online", retain=True)
        self.online.set()
        self.say("online")

    def disconnected(self, _client, _data, code):
        self.online.clear()
        self.say("offline" if code == mqtt.MQTT_ERR_SUCCESS else "broker lost, trying again")

    def take(self, _client, _data, message):
        if message.retain:  # it would be carried out again whenever the bridge comes back
            self.say("a retained order is not carried out")
        elif self.orders.qsize() == MOST:
            self.say("too many orders, one is not carried out")
        else:
            self.orders.put(message.payload.rstrip(b"\r\n") + b"\n")

    # These three have threads of their own: one for orders, the main one for events.

    def forward_orders(self):
        while True:
            try:
                self.host.stdin.write(self.orders.get())
                self.host.stdin.flush()
            except BrokenPipeError:
                return  # driver-host has ended, which the main thread notices

    def forward_events(self):
        for event in self.host.stdout:
            # While events find no room, driver-host waits as well, and none is lost.
            while not self.online.wait(LAST_WORD):
                if self.stopped:
                    sys.exit("ended without a broker; the last events are lost")
            while self.publish("events", event.rstrip()).rc == mqtt.MQTT_ERR_QUEUE_SIZE:
                time.sleep(0.1)

    def publish(self, topic, text, **options):
        return self.client.publish(self.topic + topic, text, qos=1, **options)

    def stop(self, *_):
        if self.stopped:
            sys.exit("ended at once; the last events are lost")
        self.stopped = True
        self.host.terminate()  # it ends all its orders, and so the events

    def run(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            signal.signal(number, self.stop)
        self.client.loop_start()
        threading.Thread(target=self.forward_orders, daemon=True).start()
        self.forward_events()
        code = self.host.wait()
        last = self.publish("status", "offline", retain=True)
        if last.rc == mqtt.MQTT_ERR_SUCCESS:  # else the broker says so, without this good-bye
            last.wait_for_publish(LAST_WORD)
            self.client.disconnect()
            self.client.loop_stop()
        return 0 if self.stopped else f"driver-host has ended with {code}"


def parse(arguments):
    parser = argparse.ArgumentParser(description="Joins a driver-host to an MQTT broker.",
                                     epilog="MQTT_PASSWORD in the environment is the password.")
    parser.add_argument("name", help="of this driver-host in the topics plant/NAME/...")
    parser.add_argument("--broker", metavar="HOST", default="localhost")
    parser.add_argument("--port", type=int, default=1883)
    parser.add_argument("--user", metavar="NAME")
    parser.add_argument("--ca", metavar="FILE", help="use TLS, with a broker that this vouches for")
    parser.add_argument("--driver-host", metavar="PROGRAM", default="driver-host")
    options = parser.parse_args(arguments)
    if not options.name or set(options.name) & set("/+#"):
        parser.error("a name must not be empty, nor contain / + or #")
    return options


def main(arguments):
    try:
        bridge = Bridge(parse(arguments))
    except OSError as error:  # no such program, or no such file
        return str(error)
    return bridge.run()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

#!/usr/bin/env node
// A device of another make, modbus-serial from npm: server.js COUNT, so many items in each table.
// What is written can be read as inputs too. NODE_PATH tells where the package is.
"use strict";
const net = require("net");
const { ServerTCP } = require("modbus-serial");

const count = Number(process.argv[2]);
const coils = Array(count).fill(false);
const words = Array(count).fill(0);

// One item, or the exception 2.
function item(table, number) {
    if (number >= count) {
        const missing = new Error("no such item");
        missing.modbusErrorCode = 2;
        throw missing;
    }
    return table[number];
}

const device = {
    getCoil: number => item(coils, number),
    getDiscreteInput: number => item(coils, number),
    getHoldingRegister: number => item(words, number),
    getInputRegister: number => item(words, number),
    setCoil: (number, state) => { item(coils, number); coils[number] = state; },
    setRegister: (number, word) => { item(words, number); words[number] = word; },
};
// It takes no port 0 itself.
const free = net.createServer().listen(0, "127.0.0.1", () => {
    const port = free.address().port;
    free.close(() => {
        new ServerTCP(device, { host: "127.0.0.1", port, unitID: 0 })
            .on("initialized", () => console.log(`listening on 127.0.0.1:${port}`));
    });
});

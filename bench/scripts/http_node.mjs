// The work of http_kxrun.lua with Node's fetch, 16 at a time.
const [url, requests] = [process.argv[2], Number(process.argv[3])];
let started = 0;
let answers = 0;
let bytes = 0;

async function fetchSome() {
  while (started < requests) {
    ++started;
    const answer = await fetch(url);
    if (answer.status !== 200) throw new Error(`${url} failed`);
    bytes += (await answer.arrayBuffer()).byteLength;
    ++answers;
  }
}

await Promise.all(Array.from({ length: 16 }, fetchSome));
console.log(`${answers} ${bytes}`);

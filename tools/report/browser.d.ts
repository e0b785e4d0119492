// What browsers have and the linter's own declarations lack.
declare const DecompressionStream: new(format: string) => GenericTransformStream;

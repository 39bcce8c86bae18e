// A channel to the other tabs of this page; null where the browser allows none, as Firefox without cookies does.
export function openChannel(name: string): BroadcastChannel | null {
    try {
        return new BroadcastChannel(name);
    } catch {
        return null;
    }
}
